#include "client/addresses.h"
#include "config/config.h"
#include "config/sections.h"
#include "tests/unit/captured_log.h"
#include "tests/unit/fake_clock.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>

namespace {
std::unique_ptr<qel_t> read_config(const std::string &text)
{
    const std::string path = testing::TempDir() + "qelcd_config_read_" + std::to_string(getpid());
    std::ofstream(path) << text;
    take_log();
    std::unique_ptr<qel_t> c = qelcfg_read(path.c_str());
    unlink(path.c_str());
    return c;
}

TEST(ConfigRead, RootWithoutChildrenGivesAnEmptyRecord)
{
    const std::unique_ptr<qel_t> c = read_config("<Tessaron/>");
    ASSERT_TRUE(c);
    EXPECT_EQ(c->guid, std::nullopt);
    EXPECT_EQ(c->client_port, 0);
    EXPECT_EQ(c->manager, nullptr);
    EXPECT_TRUE(c->filter_list.empty() && c->group_list.empty() && c->cdpsch_list.empty());
    EXPECT_EQ(take_log(), "");
}

TEST(ConfigRead, WhatCannotBeReadIsRefusedWithAMessage)
{
    const std::string path = testing::TempDir() + "no_such_file";
    take_log();
    EXPECT_EQ(qelcfg_read(path.c_str()), nullptr);
    EXPECT_EQ(take_log(), "3 Failed to find '" + path + "'\n");
    EXPECT_EQ(qelcfg_read(nullptr), nullptr);

    EXPECT_EQ(read_config("<Tessaron>"), nullptr);
    EXPECT_EQ(take_log().rfind("3 Failed to parse config file: ", 0), 0u);
    EXPECT_EQ(read_config("<tessaron/>"), nullptr);
    EXPECT_EQ(take_log(), "3 Config file format error.\n");
    EXPECT_EQ(read_config("<Tessaron><IPAddrFilter><IPAddr>10.0.0.1</IPAddr>"
                          "<IPAddr>300.1.1.1</IPAddr></IPAddrFilter></Tessaron>"),
              nullptr);
    EXPECT_EQ(take_log(), "3 Failed to convert IP address: 300.1.1.1.\n3 Failed to initialize IP filter.\n");
}

TEST(ConfigRead, IncompleteItemsAreSkippedAndTheRestLoads)
{
    const std::unique_ptr<qel_t> c = read_config(R"(<Tessaron><!-- x -->stray
        <IPAddrFilter><IPAddr/><Other>y</Other><IPAddr>10.0.0.1</IPAddr></IPAddrFilter>
        <DiskGroupList>
          <DiskGroup GroupName="a" CDPConStartTime="1" CDPStartTime="2"/>
          <DiskGroup CDPConStartTime="1" CDPStartTime="2" CDPTimeout="3"/>
          <DiskGroup GroupName="b" CDPConStartTime="1" CDPStartTime="2" CDPTimeout="3">
            <Disk/><Disk DiskGUID="d"/></DiskGroup></DiskGroupList>
        <CDPScheduleList>
          <CDPSchedule CDPLocalLUN="l" CDPMirrorLUN="m" CDPConStartTime="0" CDPStartTime="0" CDPTimeout="0"/>
          <CDPSchedule><CDPLocalLUN>l</CDPLocalLUN><CDPMirrorLUN>m</CDPMirrorLUN>
            <CDPConStartTime>0</CDPConStartTime><CDPStartTime>7</CDPStartTime><CDPTimeout>9</CDPTimeout>
          </CDPSchedule></CDPScheduleList></Tessaron>)");
    ASSERT_TRUE(c);
    EXPECT_EQ(take_log(), "4 Empty IP address.\n4 Missing group property, ignore.\n"
                          "4 Missing group property, ignore.\n"
                          "4 Failed to retrieve property DiskGUID.\n4 Missing children node, ignore.\n");
    EXPECT_EQ(join_addresses(c->filter_list), "10.0.0.1");
    ASSERT_EQ(c->group_list.size(), 1u);
    const qel_group &group = c->group_list.front();
    EXPECT_EQ(group.name, "b");
    EXPECT_EQ(group.cdp_start_time, 2u) << "a group's schedule is taken as stored";
    ASSERT_EQ(group.member_list.size(), 1u);
    EXPECT_EQ(group.member_list.front().disk_guid, "d");
    ASSERT_EQ(c->cdpsch_list.size(), 1u);
    EXPECT_EQ(c->cdpsch_list.front().cdp_start_time, 7u);
}

TEST(ConfigRead, RepeatedElementsReplaceOrAppend)
{
    const std::unique_ptr<qel_t> c = read_config(
        "<Tessaron><ClientGUID>a</ClientGUID><ClientGUID>b</ClientGUID><ClientGUID/>"
        "<IPAddrFilter><IPAddr>10.0.0.1</IPAddr></IPAddrFilter>"
        "<IPAddrFilter><IPAddr>10.0.0.2</IPAddr></IPAddrFilter>"
        "<Manager><ManagerGUID>a</ManagerGUID><TargetIQN>t</TargetIQN></Manager>"
        "<Manager><ManagerGUID>b</ManagerGUID><ManagerIPAddr>300.1.1.1</ManagerIPAddr></Manager></Tessaron>");
    ASSERT_TRUE(c);
    EXPECT_EQ(c->guid, "b");
    EXPECT_EQ(join_addresses(c->filter_list), "10.0.0.1 10.0.0.2");
    EXPECT_EQ(c->manager->guid, "b");
    EXPECT_EQ(c->manager->target_iqn, std::nullopt);
    EXPECT_EQ(join_addresses(c->manager->ip_list), "0.0.0.0");
    EXPECT_EQ(take_log(), "");
}

TEST(ConfigRead, NumbersAreReadAsStdioReadsThem)
{
    struct {
        const char *text;
        uint64_t time;
        uint32_t interval;
        int port;
    } const cases[] = {
        {"abc", 0, 0, 0},
        {" +12x", 12, 12, 12},
        {"-1", 18446744073709551615u, 4294967295u, -1},
        {"99999999999999999999999", 18446744073709551615u, 4294967295u, -1},
    };
    for (const auto &row : cases) {
        char document[512];
        snprintf(document, sizeof document,
                 "<Tessaron><ClientPort>%s</ClientPort><DiskGroupList><DiskGroup GroupName='' "
                 "CDPConStartTime='%s' CDPStartTime='0' CDPTimeout='%s'/></DiskGroupList></Tessaron>",
                 row.text, row.text, row.text);
        const std::unique_ptr<qel_t> c = read_config(document);
        ASSERT_TRUE(c);
        EXPECT_EQ(c->client_port, row.port) << row.text;
        EXPECT_EQ(c->group_list.front().cdp_con_start_time, row.time) << row.text;
        EXPECT_EQ(c->group_list.front().cdp_timeout, row.interval) << row.text;
    }
}

TEST(ConfigRead, MissedScheduleMovesToItsNextSlot)
{
    constexpr int64_t now = 1000;
    struct {
        uint64_t con_start, start;
        uint32_t interval;
        uint64_t expected;
    } const cases[] = {
        {50, 150, 300, 1050},  {50, 400, 300, 1300}, // now is a slot: a whole interval on
        {50, 1000, 300, 1300}, {50, 1001, 300, 1001}, {50, 2000, 300, 2000},
        {999, 0, 300, 1200},   {0, 150, 300, 150},    {50, 150, 0, 150},
        {1000, 150, 300, 150}, {1001, 150, 300, 150}, {18446744073709551615u, 150, 300, 1050},
    };
    for (const auto &row : cases) {
        qel_cdpsch schedule{{}, {}, row.con_start, row.start, row.interval};
        catch_up(schedule, now);
        EXPECT_EQ(schedule.cdp_start_time, row.expected)
            << row.con_start << ' ' << row.start << ' ' << row.interval;
    }
}
} // namespace
