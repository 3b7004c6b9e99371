// The stand-ins themselves: they tell on whatever a test did not foresee.
#include "tests/scripted/script.h"

#include <gtest/gtest.h>
#include <kavdisk.h>
#include <tw.h>

TEST(script, NextCallGoesBeforeAllCallsAndArgumentsMustMatch)
{
    script world;
    world.always("tw_disk_protect", "5");
    world.once("tw_disk_protect", "-3", {"B", "a name"});
    EXPECT_EQ(tw_disk_protect("A", "M"), 5);
    EXPECT_EQ(tw_disk_protect("B", "a name"), -3);
    EXPECT_EQ(tw_disk_protect("B", "a name"), 5);
    EXPECT_EQ(world.calls("tw_disk_protect").at(1), "tw_disk_protect B a\\x20name");
}

TEST(script, WhatIsNotForeseenOrNotUsedIsAFault)
{
    script world;
    EXPECT_LT(tw_disk_unprotect("A"), 0);
    world.once("tw_disk_resync", "0");
    world.disks({{.name = "sdb\nno-such-field 1", .path = {}, .vendor = {}, .model = {}, .parts = {}}});
    kav_list list;
    kav_list_init(&list);
    kavdisk_get_devs(&list, 0);
    kavdisk_free_devs(&list);
    const auto faults = world.take_faults();
    EXPECT_EQ(faults, (std::vector<std::string>{"unexpected: tw_disk_unprotect A",
                                                "unexpected: disks:2: cannot make sense of no-such-field",
                                                "never used: tw_disk_resync 0"}));
}
