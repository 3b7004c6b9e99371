// The embedded CDP agent when memory runs out: a call fails and changes nothing, and no record counts as
// damaged.
#include "platform/include/kavagt.h"
#include "tests/scripted/script.h"
#include "tests/support/captured_log.h"
#include "tests/support/client.h"
#include "tests/support/files.h"
#include "tests/support/shortage.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <map>

namespace {
namespace fs = std::filesystem;
const std::string folder = "/var/lib/kavcdpagt/";
constexpr char name[] = "a name that does not fit into a small string";
constexpr char mirror[] = "0a1b2c3d-0000-0000-0000-000000000000";

// Without the journal, snapshots, and what a write that failed left.
std::map<std::string, std::string> state()
{
    std::map<std::string, std::string> files;
    for (const auto &entry : fs::directory_iterator(folder)) {
        const std::string file = entry.path().filename();
        if (file != "journal" && file != ".new" && !file.ends_with(".snapshot"))
            files[file] = read_file(entry.path());
    }
    return files;
}

// Keeps a mirror as an empty file. Its place has that name, so that one can see what no record tells of.
void write_keeper()
{
    const std::string path = "/etc/kavtessaron/keepers.d/lvm";
    write_file(path,
               "#!/bin/sh\ncase $1 in\nprobe) echo /run/$QELCD_SNAPSHOT.kept ;;\nmark) : >$QELCD_PLACE ;;\n"
               "undo) rm -f $QELCD_PLACE ;;\nlist) echo '[{\"place\":\"'$2'\"}]' ;;\nesac\n");
    fs::permissions(path, fs::perms::owner_all);
    fs::create_symlink("/dev/null", "/etc/kavtessaron/keepers.d/reflink");
}

// Whether there is a record of everything that is kept. Removes both.
bool is_everything_recorded()
{
    bool is_recorded = true;
    for (const auto &entry : fs::directory_iterator("/run")) {
        const std::string kept = entry.path().stem();
        if (entry.path().extension() == ".kept" && fs::remove(entry.path()))
            is_recorded = is_recorded && fs::remove(folder + kept + ".snapshot");
    }
    return is_recorded;
}

int connect_database()
{
    const auto text = [](const char *constant) { return const_cast<char *>(constant); };
    Kavapp app{{}, text(name), 1, 0, text(name), {}, {}, {}, text("127.0.0.1"), text("1521")};
    return Kav_connect_db_flush_cfg(&app);
}

template <int (*List)(kav_list *)>
int list_and_free()
{
    kav_list list{&list, &list};
    const int result = List(&list);
    int count = 0;
    for (kav_list *link = list.next; link != &list; ++count) {
        void *record = link;
        link = link->next;
        if (List == Kav_list_dev)
            free(kav_list_entry(record, Kavdev, link)->path), free(kav_list_entry(record, Kavdev, link));
        else
            for (auto *app = static_cast<Kavapp *>(record); app; free(std::exchange(app, nullptr)))
                for (char *text : {app->instance_name, app->db_name, app->host, app->port})
                    free(text);
    }
    return result == 0 ? count : result - 10 * count;
}
} // namespace

TEST(Agent, OutOfMemoryACallFailsAndNoRecordIsSetAside)
{
    script world;
    world.relationships({{.dest_guid = mirror, .dest_path = "/dev/a-mirror-of-the-host"}});
    write_file("/etc/kavtessaron/mark.d/a", "#!/bin/sh\necho $QELCD_MARK >>/run/marks\n");
    fs::permissions("/etc/kavtessaron/mark.d/a", fs::perms::owner_all);
    write_keeper();
    const std::string braced = "{" + std::string(mirror) + "}";
    const peer database = listen_tcp(1521);
    fcntl(database.fd(), F_SETFL, O_NONBLOCK);
    ASSERT_EQ(connect_database() + kav_call_disk_markcdp(braced.c_str()), 0);
    const auto before = state();
    ASSERT_TRUE(is_everything_recorded());
    fs::remove("/run/marks");

    const struct {
        std::function<int()> call;
        int success, failure;
        uint64_t step = 1;
    } calls[] = {
        {list_and_free<Kav_list_app>, 1, -1},
        {list_and_free<Kav_list_dev>, 1, -1},
        {[] { return Kav_delete_app("another name that does not fit into a small string"); }, 0, -1},
        {[] { return Kav_delete_dev(0, "{1a1b2c3d-0000-0000-0000-000000000000}"); }, 0, -1},
        {[&] {
             close(accept(database.fd(), nullptr, nullptr));
             return connect_database();
         },
         0, -1},
        {[&] { return kav_call_disk_markcdp(braced.c_str()); }, 0, -1, 7},
    };
    for (const auto &[call, success, failure, step] : calls) {
        SCOPED_TRACE(&call - &calls[0].call);
        at_every_allocation(
            call,
            [&](int result, bool only_one) {
                const std::string log = take_log();
                EXPECT_TRUE(result == success || (result == failure && !log.empty())) << result << log;
                EXPECT_EQ(state(), before) << log;
                const std::string marks = read_file("/run/marks");
                const auto done = std::ranges::count(marks, 'm'), undone = std::ranges::count(marks, 'u');
                EXPECT_TRUE(done - undone == (result == success) || !only_one || marks.empty()) << marks;
                fs::remove("/run/marks");
                EXPECT_TRUE(is_everything_recorded()) << log;
            },
            step);
    }
}
