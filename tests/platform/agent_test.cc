// The embedded CDP agent in a private host, with the mirror relationships of a script.
#include "platform/include/kavagt.h"
#include "tests/scripted/script.h"
#include "tests/support/captured_log.h"
#include "tests/support/client.h"
#include "tests/support/files.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/wait.h>

#include <filesystem>
#include <future>
#include <regex>

namespace {
namespace fs = std::filesystem;
const std::string FOLDER = "/var/lib/kavcdpagt/", HOOKS = "/etc/kavtessaron/mark.d/";
const std::string NOTE = "#!/bin/sh\necho ${0##*/} $QELCD_MARK $QELCD_DEVICE >>/run/calls\n";
const std::string TEXTS = "  se%cret\n (null) 127.0.0.1 1521 4294967295 -7;";

int keep(const char *name, const char *port = "1521", const char *user = "")
{
    const auto text = [](const char *constant) { return const_cast<char *>(constant); };
    Kavapp app{{}, text(name), ~0U, -7, {}, text(user), text("se%cret\n"), {}, text("127.0.0.1"), text(port)};
    return Kav_connect_db_flush_cfg(&app);
}

std::string apps()
{
    kav_list list{&list, &list};
    std::string all = Kav_list_app(&list) == 0 ? "" : "failed";
    for (kav_list *link = list.next; link != &list;) {
        auto *app = kav_list_entry(link, Kavapp, link);
        link = link->next;
        for (char *text :
             {app->instance_name, app->db_user, app->db_passwd, app->oracle_home, app->host, app->port})
            all += std::string(text ? text : "(null)") + " ", free(text);
        all += std::to_string(app->db_type) + " " + std::to_string(app->archive_log) + ";", free(app);
    }
    return all;
}

int mark_group(const char *name, std::vector<Kavdev> devices)
{
    Kavdevgrp group{{}, {&group.devices, &group.devices}, const_cast<char *>(name)};
    for (Kavdev &device : devices)
        kav_list_append(&group.devices, &device.link);
    return kav_call_grp_markcdp(&group);
}

void hook(const std::string &name, const std::string &commands)
{
    write_file(HOOKS + name, NOTE + commands);
    fs::permissions(HOOKS + name, name == "e" ? fs::perms::owner_read : fs::perms::owner_all);
}

TEST(Agent, ApplicationsThatAnswerAreKeptWhateverTheirName)
{
    EXPECT_TRUE(keep("object-7") + keep("a", "no-port") + keep(nullptr) == -3 && apps().empty());
    EXPECT_NE(take_log().find("object-7"), std::string::npos);
    const peer database = listen_tcp(1521);
    for (const char *name : {"../../x", "ORCL", ".", "\xff\n%end ", "ORCL"}) {
        EXPECT_TRUE(keep(name) == 0 && apps().find(name + TEXTS) != std::string::npos) << name;
        close(accept(database.fd(), nullptr, nullptr));
    }
    EXPECT_EQ(output_of("stat -c %a " + FOLDER + " " + FOLDER + "* | uniq | tr '\\n' ' '"), "700 600 ");
    for (const char *name : {"../../x", "ORCL", ".", "\xff\n%end "})
        EXPECT_EQ(Kav_delete_app(name), 1) << name;
    const peer one = connect_tcp("127.0.0.1", 1521), two = connect_tcp("127.0.0.1", 1521);
    const auto end = std::chrono::steady_clock::now() + 8s;
    EXPECT_TRUE(keep("a") == -1 && std::chrono::steady_clock::now() < end) << "the queue is full";
    EXPECT_TRUE(apps().empty() && Kav_delete_app("ORCL") == 0);
    EXPECT_EQ(take_log().find("cret"), std::string::npos) << "the password is told";
}

TEST(Agent, TornAndForeignFilesAreSetAsideAndNeitherObeyedNorOverwritten)
{
    const peer database = listen_tcp(1521);
    ASSERT_EQ(keep("ORCL"), 0);
    const std::string path = FOLDER + "ORCL.application", whole = read_file(path);
    std::vector bad{regex_replace(whole, std::regex("RCL"), ""), regex_replace(whole, std::regex("db_"), "")};
    for (size_t size = 0; size < whole.size(); size++)
        bad.push_back(whole.substr(0, size));
    for (size_t i = 0; i < bad.size(); i++) {
        write_file(path, bad[i]);
        EXPECT_TRUE(i == 0 ? keep("ORCL") == 0 : apps().empty()) << bad[i];
        EXPECT_EQ(read_file(path + ".damaged-" + std::to_string(i + 1)), bad[i]);
    }
    EXPECT_EQ(take_log().substr(0, 3 + path.size()), "3 " + path + " ") << "reported";
}

TEST(Agent, WritersThatAreKilledLeaveWholeFiles)
{
    for (int round = 0; round < 20; round++, fs::remove_all(FOLDER)) {
        const peer database = listen_tcp(1521);
        pid_t writers[2];
        for (pid_t &writer : writers) {
            for (writer = fork(); writer == 0; close(accept(database.fd(), nullptr, nullptr)))
                keep("ORCL", "1521", std::string(&writer == writers ? 20000 : 1, 'x').c_str());
        }
        EXPECT_TRUE(eventually([] { return !apps().empty(); }));
        std::this_thread::sleep_for(round * 1ms);
        for (const pid_t writer : writers)
            EXPECT_TRUE(kill(writer, SIGKILL) == 0 && waitpid(writer, nullptr, 0) == writer);
        EXPECT_TRUE(apps().starts_with("ORCL ") && apps().ends_with(TEXTS.substr(1)) && take_log().empty());
    }
}

TEST(Agent, MarksRunHooksAndUndoThemWhenOneFails)
{
    script world;
    world.relationships({{.dest_guid = "1", .dest_path = "/one"}, {.dest_guid = "2", .dest_path = "/two"}});
    hook("b", "[ $QELCD_GUID$QELCD_MARK != 2mark ]\n");
    setenv("FOREIGN", "", 1);
    hook("a", "[ $(readlink /proc/self/fd/2) = /dev/null -a ${FOREIGN-no} = no ]\n"), hook(".c", ""),
        hook("d~", ""), hook("e", "");
    EXPECT_TRUE(kav_call_disk_markcdp("{1}") == 0 && kav_call_disk_markcdp("{3}") == -1);
    EXPECT_EQ(mark_group("my group", {{.guid = "{1}"}, {.guid = "{2}"}, {.guid = "{1}"}}), -1);
    const std::string one = "a mark /one\nb mark /one\n", two = "a mark /two\nb mark /two\n";
    EXPECT_EQ(read_file("/run/calls"), one + one + two + "a undo /two\nb undo /one\na undo /one\n");
    fs::remove_all(HOOKS);
    EXPECT_EQ(kav_call_disk_markcdp("{1}"), -1) << "nothing keeps it";
    write_file("/etc/kavtessaron/embedded.conf", "unkept = journal\n");
    EXPECT_EQ(mark_group("G", {{.guid = "{2}"}, {.guid = "{1}"}}) + mark_group("G", {}), -1);
    EXPECT_EQ(kav_call_disk_markcdp("1") + kav_call_disk_markcdp("{}"), -2);
    const std::string lines =
        "disk 1 ok\ndisk 3 failed: 3 is no mirror of a disk of this host\n"
        "group my%20group 1,2 failed: hook b on 2: exit status 1\ndisk 1 failed: nothing\n"
        "group G 2,1 ok\n";
    EXPECT_EQ(regex_replace(read_file(FOLDER + "journal"), std::regex("[-0-9]+T[:0-9]+Z | would.*"), ""),
              lines);
    kav_list list{&list, &list};
    ASSERT_TRUE(Kav_list_dev(&list) == 0 && list.next->next == list.prev && list.prev->next == &list);
    auto *first = kav_list_entry(list.next, Kavdev, link), *last = kav_list_entry(list.prev, Kavdev, link);
    EXPECT_EQ(first->guid + std::to_string(first->flag) + first->path + last->guid + last->path,
              "{1}1/one{2}/two");
    free(first->path), free(first), free(last->path), free(last);
    EXPECT_TRUE(Kav_delete_dev(0, "{1}") == 1 && Kav_delete_dev(0, "2") == 1 && Kav_delete_dev(0, "2") == 0);
}

TEST(Agent, MarksWaitForTheMirrorAndForMarksOfTheSameMirrorOnly)
{
    script world;
    world.relationships({{.dest_guid = "1", .sync_state = "Sync On"}, {.dest_guid = "2"}});
    hook("a", "mkdir /run/in$QELCD_GUID || exit 1\n" // a mark of 1 sees one of 2, but no other of 1
              "until [ -e /run/seen2 ] || [ $QELCD_GUID = 2 -a -e /run/in1 ]; do sleep .1; done\n"
              "touch /run/seen$QELCD_GUID; sleep .2; rmdir /run/in$QELCD_GUID\n");
    std::vector<std::future<int>> marks;
    for (const char *guid : {"{1}", "{1}", "{2}"})
        marks.push_back(std::async(std::launch::async, kav_call_disk_markcdp, guid));
    std::this_thread::sleep_for(500ms);
    EXPECT_FALSE(fs::exists("/run/in1"));
    world.relationships({{.dest_guid = "1"}, {.dest_guid = "2"}});
    for (std::future<int> &mark : marks)
        EXPECT_EQ(mark.get(), 0) << take_log();
}
} // namespace
