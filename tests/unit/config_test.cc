#include "config/config.h"
#include "config/sections.h"
#include "tests/support/captured_log.h"
#include "tests/support/files.h"
#include "tests/unit/fake_clock.h"
#include "tests/unit/shown.h"

#include <gtest/gtest.h>
#include <unistd.h>

namespace {
struct Config : testing::Test {
    const std::string path = testing::TempDir() + "qelcd_config_" + std::to_string(getpid());

    Config() { take_log(); }
    ~Config() override { unlink(path.c_str()); }

    std::unique_ptr<qel_t> read(const std::string &text) const
    {
        write_file(path, text);
        return qelcfg_read(path.c_str());
    }
};

TEST_F(Config, WhatCannotBeReadIsRefusedWithAMessage)
{
    EXPECT_EQ(qelcfg_read(path.c_str()), nullptr);
    EXPECT_EQ(take_log(), "3 Failed to find '" + path + "'\n");
    EXPECT_EQ(qelcfg_read(nullptr), nullptr);
    const std::pair<const char *, std::string> cases[] = {
        {"<Tessaron>", "3 Failed to parse config file: " + path + "\n"},
        {"<!DOCTYPE Tessaron [<!ENTITY a 'b'>]><Tessaron/>", "3 Failed to parse config file: " + path + "\n"},
        {"<tessaron/>", "3 Config file format error.\n"},
        {"<Tessaron><IPAddrFilter><IPAddr>300.1.1.1</IPAddr></IPAddrFilter></Tessaron>",
         "3 Failed to convert IP address: 300.1.1.1.\n3 Failed to initialize IP filter.\n"},
    };
    for (const auto &[text, log] : cases) {
        EXPECT_EQ(read(text), nullptr) << text;
        EXPECT_EQ(take_log(), log);
    }
}

TEST_F(Config, OddItemsAreSkippedReplacedOrReadAsStdioReadsThem)
{
    const struct {
        const char *body, *record, *log;
    } cases[] = {
        {"", "- - 0 0; ;;;", ""},
        {"<!-- x -->stray<IPAddrFilter><IPAddr/><Other>y</Other><IPAddr>10.0.0.1</IPAddr></IPAddrFilter>"
         "<DiskGroupList><DiskGroup GroupName='a' CDPConStartTime='1' CDPStartTime='2'/>"
         "<DiskGroup CDPConStartTime='1' CDPStartTime='2' CDPTimeout='3'/>"
         "<DiskGroup GroupName='b' CDPConStartTime='1' CDPStartTime='2' CDPTimeout='3'>"
         "<Disk/><Disk DiskGUID='d'/></DiskGroup></DiskGroupList><CDPScheduleList>"
         "<CDPSchedule CDPLocalLUN='l' CDPMirrorLUN='m' CDPConStartTime='0' CDPStartTime='0' CDPTimeout='0'/>"
         "<CDPSchedule><CDPLocalLUN>l</CDPLocalLUN><CDPMirrorLUN>m</CDPMirrorLUN><CDPConStartTime>1"
         "</CDPConStartTime><CDPStartTime>7</CDPStartTime><CDPTimeout>9</CDPTimeout></CDPSchedule>"
         "</CDPScheduleList>",
         "- - 0 0; 10.0.0.1;; b d@1/2/3; l>m@1/1006/9", // only the disk's schedule has been caught up
         "4 Empty IP address.\n4 Missing group property, ignore.\n4 Missing group property, ignore.\n"
         "4 Failed to retrieve property DiskGUID.\n4 Missing children node, ignore.\n"},
        {"<ClientGUID>a</ClientGUID><ClientGUID>b</ClientGUID><ClientGUID/>"
         "<IPAddrFilter><IPAddr>10.0.0.1</IPAddr></IPAddrFilter>"
         "<IPAddrFilter><IPAddr>10.0.0.2</IPAddr></IPAddrFilter>"
         "<Manager><ManagerGUID>a</ManagerGUID><TargetIQN>t</TargetIQN></Manager>"
         "<Manager><ManagerGUID>b</ManagerGUID><ManagerIPAddr>300.1.1.1</ManagerIPAddr>"
         "<ManagerIPAddr>10.0.0.3</ManagerIPAddr></Manager>",
         "b - 0 0; 10.0.0.1 10.0.0.2; b - [0.0.0.0 10.0.0.3];;", ""},
        {"<ClientPort> +12x</ClientPort><ServerPort>99999999999999999999</ServerPort><DiskGroupList>"
         "<DiskGroup GroupName='' CDPConStartTime='abc' CDPStartTime=' +12x' CDPTimeout='4294967296'/>"
         "<DiskGroup GroupName='' CDPConStartTime='99999999999999999999' CDPStartTime='-1' CDPTimeout='-1'/>"
         "</DiskGroupList>",
         "- - 12 -1; ;; @0/12/0 @18446744073709551615/18446744073709551615/4294967295;", ""},
    };
    fake_clock_set_wall(1000);
    for (const auto &row : cases) {
        const std::unique_ptr<qel_t> c = read("<Tessaron>" + std::string(row.body) + "</Tessaron>");
        ASSERT_TRUE(c) << row.body;
        EXPECT_EQ(shown(*c), row.record);
        EXPECT_EQ(take_log(), row.log);
    }
}

TEST(CatchUp, MissedScheduleMovesToItsNextSlot)
{
    constexpr int64_t now = 1000;
    const struct {
        uint64_t con_start, start;
        uint32_t interval;
        uint64_t expected;
    } cases[] = {
        {50, 150, 300, 1050},
        {50, 400, 300, 1300}, // now is a slot: a whole interval on
        {50, 1000, 300, 1300},
        {50, 1001, 300, 1001},
        {999, 0, 300, 1200},
        {0, 150, 300, 150},
        {50, 150, 0, 150},
        {1000, 150, 300, 150},
        {18446744073709551615u, 150, 300, 1050},
    };
    for (const auto &row : cases) {
        qel_cdpsch schedule{{}, {}, row.con_start, row.start, row.interval};
        catch_up(schedule, now);
        EXPECT_EQ(schedule.cdp_start_time, row.expected)
            << row.con_start << ' ' << row.start << ' ' << row.interval;
    }
}

TEST_F(Config, FileIsXmlThatAPersonCanReadAndEdit)
{
    setenv("TZ", "UTC-1", 1);
    tzset();
    fake_clock_set_wall(1794738039); // 2026-11-15 10:20:39 UTC
    qel_t c;
    c.guid = "a&b";
    c.client_port = 21000;
    c.server_port = -1;
    c.manager = std::make_unique<qel_manager>();
    c.manager->guid = "m<";
    c.manager->ip_list = {{inet_addr("10.0.0.2")}, {0}};
    c.group_list.push_back({"g\"", 1, 18446744073709551615u, 4294967295u, {{"d"}}});
    c.cdpsch_list.push_back({"l", "m", 4, 5, 6});
    write_file(path, std::string(10000, 'x'));
    qelcfg_write(path.c_str(), &c);
    const std::string file = read_file(path);
    EXPECT_TRUE(file.starts_with(R"(<?xml version="1.0" encoding="utf-8"?>
<Tessaron>
  <!--Generated by Tessaron Client: 2026/11/15 11:20:39-->
  <ClientGUID>a&amp;b</ClientGUID>
  <ClientAlias/>
  <ClientPort>21000</ClientPort>
  <ServerPort>-1</ServerPort>
  <IPAddrFilter/>
  <Manager>
    <ManagerGUID>m&lt;</ManagerGUID>
    <ManagerIPAddr>10.0.0.2</ManagerIPAddr>
    <ManagerIPAddr>0.0.0.0</ManagerIPAddr>
  </Manager>
  <DiskGroupList>
    <DiskGroup GroupName="g&quot;" CDPConStartTime="1" CDPStartTime="18446744073709551615" CDPTimeout="4294967295">
      <Disk DiskGUID="d"/>
)") && file.ends_with("</CDPScheduleList>\n</Tessaron>\n"))
        << file;
    EXPECT_EQ(take_log(LOG_INFO), "6 Ready to write new schedule into config, console start time: 4, "
                                  "start_time: 5, interval: 6.\n");
}

TEST_F(Config, AnyTextOfALargeRecordIsReadBack)
{
    const std::string texts[] = {"plain",
                                 " &amp; <a href=\"x\">'y'</a> ]]> -- ",
                                 "\u4f60\u597d \u00e9 \U0001f4be",
                                 "\ttab\nline\r\nend",
                                 "  ",
                                 ""};
    qel_t c;
    for (unsigned i = 0; i < 5000; ++i) {
        const std::string &text = texts[i % std::size(texts)];
        c.cdpsch_list.push_back({text, text + std::to_string(i), 0, i, i});
        c.group_list.push_back({text, i, i + 1, i + 2, {}});
        c.group_list.back().member_list.assign(i % 3, {text});
    }
    c.alias = texts[1];
    c.guid = texts[2];
    c.filter_list = {{inet_addr("10.0.0.1")}};
    c.manager = std::make_unique<qel_manager>();
    c.manager->guid = texts[3];
    c.manager->target_iqn = texts[1];
    qelcfg_write(path.c_str(), &c);
    const std::unique_ptr<qel_t> read_back = qelcfg_read(path.c_str());
    ASSERT_TRUE(read_back);
    EXPECT_TRUE(shown(*read_back) == shown(c));
    EXPECT_EQ(take_log(), "");
}
} // namespace
