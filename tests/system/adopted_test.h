// A host that a manager has adopted, with consistency groups and CDP schedules in its configuration.
#pragma once

#include "tests/support/system_test.h"

#include <algorithm>
#include <csignal>
#include <ctime>

constexpr uint64_t far_future = 4102444800; // seconds since the epoch, 2100-01-01 00:00 UTC
constexpr char xml_head[] = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n";

inline std::string element(const std::string &name, const std::string &content)
{
    return content.empty() ? "<" + name + "/>"
                           : filled("<%>%</%>", name, content, name.substr(0, name.find(' ')));
}

// As the configuration file has them. The times: the console's start, the next run, the interval. The mirror
// of the disk L1 is M1, and so on.
inline std::string group_element(const char *name, uint64_t con, uint64_t next, unsigned interval,
                                 const texts &members)
{
    return element(filled(R"(DiskGroup GroupName="%" CDPConStartTime="%" CDPStartTime="%" CDPTimeout="%")",
                          name, con, next, interval),
                   repeated(R"(<Disk DiskGUID="%"/>)", members));
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
        manager.answer(0, manager_document("M-1", "127.0.0.1"));
        disks = {{.name = "sda", .path = "/dev/sda", .vendor = {}, .model = {}, .state = 0}};
        for (const std::string number : {"1", "2", "3", "4", "5"}) {
            disks[0].parts.push_back({.name = "sda" + number, .guid = "L" + number, .fs = {}});
            world.scsi_guid("/dev/m" + number, "M" + number);
            disks.push_back({.name = "m" + number, .path = "/dev/m" + number, .vendor = "QRZ", .model = ""});
        }
        world.disks(disks);
    }

    // The daemon goes before the manager, or a heartbeat that is under way would be an error in the log.
    ~adopted_test() override { qelcd::stop(); }

    void start(const std::string &groups = "", const std::string &schedules = "", const texts &options = {})
    {
        write_config({.manager_guid = "M-1", .manager_ips = {"127.0.0.1"}, .more = lists(groups, schedules)});
        daemon.start(options);
    }

    // All groups and schedules, as the file has them by now.
    static void expect_saved(const std::string &groups, const std::string &schedules)
    {
        std::string file;
        for (const char byte : read_file(config_file_path)) {
            if (byte != '\n' && (byte != ' ' || !file.ends_with('>')))
                file += byte;
        }
        EXPECT_NE(file.find(lists(groups, schedules)), std::string::npos) << lists(groups, schedules) << file;
    }

    // CONTENT is the reply document without its first line, "" for no document; ERROR, unless "", is the line
    // that tells of the failure. Handlers may wait for devices.
    void expect_answer(int status, uint32_t command, const std::string &request,
                       const std::string &error = "", const std::string &content = "")
    {
        const size_t mark = log.size();
        const auto answer = ask(connect_unix(), request_head(command, request.size()), request, 60s);
        ASSERT_TRUE(answer) << request;
        EXPECT_EQ(answer->head.ret, status) << command << request;
        EXPECT_EQ(answer->body, content.empty() ? "" : xml_head + content + "\n") << command << request;
        if (!error.empty())
            log.expect(LOG_ERR, error, mark);
    }

    static std::string lists(const std::string &groups, const std::string &schedules)
    {
        return element("DiskGroupList", groups) + element("CDPScheduleList", schedules);
    }

    const uint64_t past = static_cast<uint64_t>(time(nullptr)) - 1000;
    std::vector<scripted_disk> disks;
    fake_manager manager;
};
