// What a plain Linux host cannot do is refused, and the log says on which object.
#include "platform/include/kavagt.h"
#include "platform/include/tw.h"
#include "tests/support/captured_log.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

TEST(PlainHost, RefusesMirrorsAndSnapshotsAndNamesTheObject)
{
    char name[] = "object-7";
    Kavdevgrp group{};
    group.name = name;
    Kavapp app{};
    app.instance_name = name;
    take_log();
    const std::pair<int, int> results[] = {
        {tw_disk_protect(name, "m"), -1},     {tw_disk_unprotect(name), -1},
        {tw_disk_resync(name, 0), -1},        {tw_disk_stop_sync(name), -1},
        {kav_call_disk_markcdp(name), -1},    {kav_call_grp_markcdp(&group), -1},
        {Kav_connect_db_flush_cfg(&app), -1}, {Kav_delete_app(name), 0},
    };
    std::istringstream log(take_log());
    for (const auto &[result, expected] : results) {
        std::string line;
        std::getline(log, line);
        EXPECT_EQ(result, expected) << line;
        EXPECT_TRUE(line.starts_with("3 ") && line.find(name) != line.npos) << line;
    }
}

} // namespace
