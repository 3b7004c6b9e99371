// What a plain Linux host cannot do is refused, and the log says what was asked for and on which object.
#include "platform/include/kavagt.h"
#include "platform/include/tw.h"
#include "tests/platform/captured_log.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>

namespace {

TEST(PlainHost, RefusesMirrorsAndSnapshotsAndNamesTheObject)
{
    char name[] = "object-7";
    Kavdevgrp group{};
    group.name = name;
    Kavapp app{};
    app.instance_name = name;
    const std::tuple<const char *, std::function<int()>, int> calls[] = {
        {"mirror disk", [&] { return tw_disk_protect(name, "m"); }, -1},
        {"remove the protection", [&] { return tw_disk_unprotect(name); }, -1},
        {"resynchronise", [&] { return tw_disk_resync(name, 0); }, -1},
        {"stop the synchronisation", [&] { return tw_disk_stop_sync(name); }, -1},
        {"snapshot of mirror", [&] { return kav_call_disk_markcdp(name); }, -1},
        {"snapshot of group", [&] { return kav_call_grp_markcdp(&group); }, -1},
        {"connect to database", [&] { return Kav_connect_db_flush_cfg(&app); }, -1},
        {"delete database", [&] { return Kav_delete_app(name); }, 0},
        {"forget mirror", [&] { return Kav_delete_dev(0, name); }, 0},
    };
    take_log();
    for (const auto &[purpose, call, result] : calls) {
        EXPECT_EQ(call(), result) << purpose;
        const std::string log = take_log();
        EXPECT_TRUE(log.starts_with("3 ") && log.find(purpose) != log.npos && log.find(name) != log.npos)
            << log;
    }
}

TEST(PlainHost, KnowsNoRelationshipDatabaseOrDevice)
{
    kav_list list;
    kav_list_init(&list);
    EXPECT_EQ(tw_disk_stat(nullptr), nullptr);
    EXPECT_EQ(Kav_list_app(&list), 0);
    EXPECT_EQ(Kav_list_dev(&list), 0);
    EXPECT_TRUE(kav_list_empty(&list));
}

} // namespace
