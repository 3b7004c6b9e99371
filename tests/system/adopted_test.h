// A host that a manager has adopted, with consistency groups and CDP schedules in its configuration.
#pragma once

#include "tests/support/manager.h"
#include "tests/support/system_test.h"

#include <algorithm>
#include <ctime>
#include <regex>
#include <sstream>

constexpr uint32_t set_cdp_schedule = 15;
constexpr uint64_t far_future = 4102444800; // seconds since the epoch

using texts = std::vector<std::string>;

// TEXT with the values in the places of its percent signs.
template <class... Values>
std::string filled(const std::string &text, const Values &...values)
{
    std::ostringstream out;
    size_t at = 0;
    ((out << text.substr(at, text.find('%', at) - at) << values, at = text.find('%', at) + 1), ...);
    return out.str() + text.substr(at);
}

// What a manager sends; TYPE is 1 for a group.
inline std::string new_times(int type, const char *source, uint64_t start, unsigned interval)
{
    constexpr char document[] = R"(<Tessaron><Backup SourceType="%" Source="%"><Schedule StartTime="%")"
                                R"( IntervalSeconds="%"/></Backup></Tessaron>)";
    return filled(document, type, source, start, interval);
}

// As the configuration file has them. The times: the console's start, the next run, the interval. The mirror
// of the disk L1 is M1, and so on.
inline std::string group_element(const char *name, uint64_t con, uint64_t next, unsigned interval,
                                 const texts &members)
{
    std::string disks;
    for (const std::string &member : members)
        disks += filled(R"(<Disk DiskGUID="%"/>)", member);
    constexpr char element[] =
        R"(<DiskGroup GroupName="%" CDPConStartTime="%" CDPStartTime="%" CDPTimeout="%">%</DiskGroup>)";
    return filled(element, name, con, next, interval, disks);
}

inline std::string schedule_element(int number, uint64_t con, uint64_t next, unsigned interval)
{
    return filled(
        "<CDPSchedule><CDPLocalLUN>L%</CDPLocalLUN><CDPMirrorLUN>M%</CDPMirrorLUN><CDPConStartTime>%"
        "</CDPConStartTime><CDPStartTime>%</CDPStartTime><CDPTimeout>%</CDPTimeout></CDPSchedule>",
        number, number, con, next, interval);
}

class adopted_test : public system_test {
protected:
    // Disks with GUIDs L1 to L5 are there, and mirrors M1 to M5, which are /dev/m1 to /dev/m5.
    adopted_test()
    {
        manager.answer(0, fake_manager::record("M-1", "127.0.0.1"));
        disks = {{.name = "sda", .path = "/dev/sda", .vendor = {}, .model = {}, .state = 0}};
        for (const std::string number : {"1", "2", "3", "4", "5"}) {
            disks[0].parts.push_back({.name = "sda" + number, .guid = "L" + number, .fs = {}});
            world.scsi_guid("/dev/m" + number, "M" + number);
            disks.push_back({.name = "m" + number, .path = "/dev/m" + number, .vendor = "QRZ", .model = ""});
        }
        world.disks(disks);
    }

    void start(const std::string &groups = "", const std::string &schedules = "")
    {
        write_config({.manager_guid = "M-1", .manager_ips = {"127.0.0.1"}, .more = lists(groups, schedules)});
        daemon.start();
    }

    // All groups and schedules, as the file has them by now.
    static void expect_saved(const std::string &groups, const std::string &schedules)
    {
        const std::regex blanks(">\\s+<"), empty("<(\\w+)([^<>]*)></\\1>");
        const std::string file = std::regex_replace(read_file(config_file_path), blanks, "><");
        const std::string wanted = std::regex_replace(lists(groups, schedules), empty, "<$1$2/>");
        EXPECT_NE(std::regex_replace(file, empty, "<$1$2/>").find(wanted), std::string::npos)
            << wanted << file;
    }

    // CONTENT is the reply document without its first line, "" for no document. Handlers may wait for
    // devices.
    static void expect_answer(int status, uint32_t command, const std::string &request,
                              const std::string &content = "")
    {
        const peer connection = connect_unix();
        ASSERT_TRUE(connection.send(frame(request_head(command, request.size()), request)));
        const auto answer = parse_reply(connection.receive(60s).bytes);
        ASSERT_TRUE(answer) << request;
        EXPECT_EQ(answer->head.ret, status) << request;
        constexpr char first_line[] = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n";
        EXPECT_EQ(answer->body, content.empty() ? "" : first_line + content + "\n") << request;
    }

    // Lines in this order, whatever stands between.
    void expect_steps(size_t from, const texts &steps, int level = LOG_INFO)
    {
        for (const std::string &step : steps)
            from = log.expect(level, step, from);
    }

    static std::string lists(const std::string &groups, const std::string &schedules)
    {
        return filled("<DiskGroupList>%</DiskGroupList><CDPScheduleList>%</CDPScheduleList>", groups,
                      schedules);
    }

    const uint64_t past = static_cast<uint64_t>(time(nullptr)) - 1000;
    std::vector<scripted_disk> disks;
    fake_manager manager;
};
