// Databases that are made known to the CDP agent and taken away again.
#include "tests/system/adopted_test.h"

namespace {
constexpr uint32_t get_client_info = 6, db_set = 45, dbcfg_del = 49;
constexpr char set[] = "7 Update 'g_client' databases info done|Complete work: DB_SET";
constexpr char password[] = "mary's lamb", connect[] = "Kav_connect_db_flush_cfg", list[] = "Kav_list_app";

std::string setting(const char *instance, int type = 0)
{
    return filled(R"(<Tessaron><DBSet DBType="%" DBUser="scott" DBPasswd="%" InstanceName="%" ArchiveLog="1")"
                  R"( OracleHome="/opt/ora" IsCluster="0"/></Tessaron>)",
                  type, password, instance);
}

std::string deletion(const char *instance)
{
    return filled(R"(<Tessaron><DBCfgDel InstanceName="%" IsCluster="0"/></Tessaron>)", instance);
}

class database : public adopted_test {
protected:
    // Each answers with a document, in which the status is not called the same.
    void expect_set(int status, const std::string &request, const std::string &trace)
    {
        expect_trace(status, db_set, request, "Recv cmd: DB_SET|" + trace, document("rtnStatus", status));
    }

    void expect_deletion(int status, const std::string &request, const std::string &trace)
    {
        expect_trace(status, dbcfg_del, request, "Recv cmd: DBCFG_DEL|" + trace,
                     document("RtnStatus", status));
    }

    static scripted_app app(const char *instance)
    {
        return {.instance_name = instance, .db_user = "scott", .db_passwd = password};
    }

    size_t lists() const { return world.calls(list).size(); }

private:
    static std::string document(const char *attribute, int status)
    {
        return filled(R"(<Tessaron><Client ClientID="%" %="%"/></Tessaron>)", config_settings{}.guid,
                      attribute, status);
    }
};
} // namespace

TEST_F(database, IsConnectedOnceAndItsPasswordGoesToTheAgentAlone)
{
    const std::string known = R"(7 Database\(%\) has already been set)";
    world.apps({app("OLD")});
    world.once(connect, "-1", {"NEW"});
    start("", "", {"-d"});
    const size_t first = lists();
    expect_set(0, setting("OLD"), filled(known, "OLD"));
    expect_set(10028, setting("NEW"), "3 Failed to connect database(NEW).");
    EXPECT_EQ(lists(), first);
    world.always(connect, "-2"); // only -1 is a failure
    world.apps({app("OLD"), app("NEW")});
    expect_set(0, setting("NEW"), set);
    EXPECT_EQ(lists(), first + 1);
    expect_set(0, setting("NEW"), filled(known, "NEW"));
    expect_set(0, setting("OTHER", 1), set);
    expect_set(0, "<Tessaron><DBSet/></Tessaron>", set);
    const auto call = [](const char *instance, const char *type) {
        return filled(R"(% % % scott mary's\x20lamb /opt/ora 127.0.0.1 1521)", connect, instance, type);
    };
    const std::string bare = filled("% (null) 0 0 (null) (null) (null) (null) 127.0.0.1 1521", connect);
    EXPECT_EQ(world.calls(connect), (texts{call("NEW", "1 1 oracle"), call("NEW", "1 1 oracle"),
                                           call("OTHER", "0 1 (null)"), bare}));

    expect_set(1, setting("CUT").substr(0, 90),
               "3 Failed to parse xml document|3 Failed to retrieve KavApp.");
    const auto report = ask(get_client_info);
    EXPECT_TRUE(report && report->body.find(password) == std::string::npos);
    EXPECT_EQ(read_file(config_file_path).find(password), std::string::npos);
    const std::regex as_it_came("func: receive_body line: \\d+ msg: Recv xml: [^]*"); // which -d asks for
    for (const log_line &line : log.lines())
        EXPECT_TRUE(line.text.find(password) == std::string::npos || std::regex_match(line.text, as_it_came))
            << line.text;
}

TEST_F(database, IsTakenAwayWhenTheAgentAgrees)
{
    const std::string unknown = R"(7 Configuration of database\(%\) cannot be found in Kavcdpagt)";
    world.apps({app("OLD"), app("NEW")});
    world.once("Kav_delete_app", "0", {"NEW"});
    world.once("Kav_delete_app", "1", {"NEW"});
    start("", "", {"-d"});
    const size_t first = lists();
    expect_deletion(0, deletion("NONE"), "7 xml_to_instance_name:NONE|" + filled(unknown, "NONE"));
    expect_deletion(10028, deletion("NEW"),
                    R"(7 Failed to delete kavcdpagt configuration of database\(NEW\)\.)");
    EXPECT_EQ(lists(), first);
    world.apps({app("OLD")});
    expect_deletion(0, deletion("NEW"), "7 Update 'g_client' databases info done|Complete work: DBCFG_DEL");
    EXPECT_EQ(lists(), first + 1);
    expect_deletion(0, deletion("NEW"), filled(unknown, "NEW"));
    EXPECT_EQ(world.calls("Kav_delete_app"), (texts{"Kav_delete_app NEW", "Kav_delete_app NEW"}));
}

TEST_F(database, NothingIsDoneWithoutAdoptionNorForWhatCannotBeRead)
{
    world.apps({app("OLD")});
    daemon.start();
    expect_set(1, setting("NEW"), "");
    expect_deletion(1, deletion("OLD"), "");
    adopt();
    expect_set(1, "<", "3 Failed to parse xml document|3 Failed to retrieve KavApp.");
    expect_deletion(1, "<Other/>", "3 Error: xml's root node must be 'Tessaron'");
    expect_set(1, "<Tessaron/>", "3 Failed to retrieve DBSet node.|3 Failed to retrieve KavApp.");
    expect_deletion(1, "<Tessaron/>", "3 Failed to retrieve node DBCfgDel.");
    expect_deletion(1, "<Tessaron><DBCfgDel/></Tessaron>", "");
}
