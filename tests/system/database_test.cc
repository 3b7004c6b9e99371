// Databases that are made known to the CDP agent and taken away again.
#include "tests/system/adopted_test.h"

#include <csignal>
#include <cstring>

namespace {
constexpr char password[] = "mary's lamb", connect[] = "Kav_connect_db_flush_cfg", list[] = "Kav_list_app";

std::string setting(const char *instance, int type = 0)
{
    return in_root(filled(R"(<DBSet DBType="%" DBUser="scott" DBPasswd="%" InstanceName="%" ArchiveLog="1")"
                          R"( OracleHome="/opt/ora" IsCluster="0"/>)",
                          type, password, instance));
}

std::string deletion(const char *instance)
{
    return in_root(filled(R"(<DBCfgDel InstanceName="%" IsCluster="0"/>)", instance));
}

class database : public adopted_test {
protected:
    // Each answers with a document, in which the status is not called the same.
    void expect(int status, uint32_t command, const std::string &request, const std::string &error = "")
    {
        const char *attribute = command == command::db_set ? "rtnStatus" : "RtnStatus";
        expect_answer(
            status, command, request, error,
            in_root(filled(R"(<Client ClientID="%" %="%"/>)", config_settings{}.guid, attribute, status)));
    }

    static scripted_app app(const char *instance)
    {
        return {.instance_name = instance, .db_user = "scott", .db_passwd = password};
    }

    size_t lists() const { return world.calls(list).size(); }
};
} // namespace

TEST_F(database, IsConnectedOnceAndItsPasswordGoesToTheAgentAlone)
{
    world.apps({app("OLD")});
    world.once(connect, "-1", {"NEW"});
    start("", "", {"-d"});
    const size_t first = lists();
    expect(0, command::db_set, setting("OLD"));
    expect(10028, command::db_set, setting("NEW"), "Failed to connect database(NEW).");
    EXPECT_EQ(lists(), first);
    world.always(connect, "-2"); // only -1 is a failure
    world.apps({app("OLD"), app("NEW")});
    expect(0, command::db_set, setting("NEW"));
    EXPECT_EQ(lists(), first + 1) << "the host's databases are read anew";
    expect(0, command::db_set, setting("NEW"));
    expect(0, command::db_set, setting("OTHER", 1));
    expect(0, command::db_set, in_root("<DBSet/>"));
    const auto call = [](const char *instance, const char *type) {
        return filled(R"(% % % scott mary's\x20lamb /opt/ora 127.0.0.1 1521)", connect, instance, type);
    };
    const std::string bare = filled("% (null) 0 0 (null) (null) (null) (null) 127.0.0.1 1521", connect);
    EXPECT_EQ(world.calls(connect), (texts{call("NEW", "1 1 oracle"), call("NEW", "1 1 oracle"),
                                           call("OTHER", "0 1 (null)"), bare}));

    log.tolerate("Failed to parse xml document");
    expect(1, command::db_set, setting("CUT").substr(0, 90), "Failed to retrieve KavApp.");
    const auto report = ask(command::get_client_info);
    EXPECT_TRUE(report && report->body.find(password) == std::string::npos);
    EXPECT_EQ(read_file(config_file_path).find(password), std::string::npos);
    for (const log_line &line : log.lines()) { // but where -d asks for it as it came
        EXPECT_TRUE(line.text.find(password) == std::string::npos ||
                    line.text.starts_with("func: receive_body line: "))
            << line.text;
    }
}

TEST_F(database, PasswordIsNowhereInMemoryAfterwards)
{
#ifdef QELCD_SANITIZED
    GTEST_SKIP() << "a sanitizer maps more memory than can be read";
#endif
    const texts passwords = {"pw-7Kq2vX",
                             "a much longer password, 9f3b7d51c2"}; // kept in a string, and on the heap
    daemon.embed("libkavagt");
    const peer listener = listen_tcp(1521);
    start();
    for (const std::string &one : passwords) {
        std::string request = setting(one == passwords[0] ? "SHORT" : "LONG");
        request.replace(request.find(password), strlen(password), one);
        // So long that nobody else soon gets the same memory, and overwrites it.
        request.insert(strlen("<Tessaron>"), "<!--" + std::string(40000, ' ') + "-->");
        expect(0, command::db_set, request);
        log.tolerate("Failed to parse xml document");
        expect(1, command::db_set, request.substr(0, request.size() - 5), "Failed to retrieve KavApp.");
    }
    const auto expect_wiped = [&] { // soon after the answer
        EXPECT_NE(writable_memory_with(qelcd::worker(), "LONG"), "");
        for (const std::string &one : passwords)
            EXPECT_TRUE(eventually([&] { return writable_memory_with(qelcd::worker(), one).empty(); }))
                << one << ": " << writable_memory_with(qelcd::worker(), one);
    };
    expect_wiped();
    const pid_t former = qelcd::worker();
    kill(former, SIGKILL);
    qelcd::wait_for_new_worker(former);
    expect_wiped(); // and what it read from the files
    expect(0, command::dbcfg_del, deletion("SHORT"));
    expect_wiped();
}

TEST_F(database, ListThatCannotBeReadChangesNothing)
{
    world.apps({app("OLD")});
    start();
    world.once(list, "-1");
    world.once(connect, "0", {"NEW"});
    log.tolerate("Failed to list the databases, the known ones are kept.");
    expect(0, command::db_set, setting("NEW"));
    world.once("Kav_delete_app", "0", {"OLD"});
    expect(10028, command::dbcfg_del, deletion("OLD"));
}

TEST_F(database, IsTakenAwayWhenTheAgentAgrees)
{
    world.apps({app("OLD"), app("NEW")});
    world.once("Kav_delete_app", "0", {"NEW"});
    world.once("Kav_delete_app", "1", {"NEW"});
    start();
    const size_t first = lists();
    expect(0, command::dbcfg_del, deletion("NONE"));
    expect(10028, command::dbcfg_del, deletion("NEW"));
    EXPECT_EQ(lists(), first);
    world.apps({app("OLD")});
    expect(0, command::dbcfg_del, deletion("NEW"));
    EXPECT_EQ(lists(), first + 1);
    expect(0, command::dbcfg_del, deletion("NEW"));
    EXPECT_EQ(world.calls("Kav_delete_app"), (texts{"Kav_delete_app NEW", "Kav_delete_app NEW"}));
}
