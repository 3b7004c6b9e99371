// A host that a manager has adopted, with consistency groups and CDP schedules in its configuration.
#pragma once

#include "protocol/commands.h"
#include "tests/support/manager.h"
#include "tests/support/system_test.h"

#include <algorithm>
#include <csignal>
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

    // The daemon goes before the manager, or a heartbeat that is under way would be an error in the log.
    ~adopted_test() override
    {
        if (qelcd::supervisor() > 0)
            kill(qelcd::supervisor(), SIGKILL);
        EXPECT_TRUE(qelcd::wait_for_end());
    }

    void start(const std::string &groups = "", const std::string &schedules = "", const texts &options = {})
    {
        write_config({.manager_guid = "M-1", .manager_ips = {"127.0.0.1"}, .more = lists(groups, schedules)});
        daemon.start(options);
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
        const auto answer = ask(connect_unix(), request_head(command, request.size()), request, 60s);
        ASSERT_TRUE(answer) << request;
        EXPECT_EQ(answer->head.ret, status) << request;
        constexpr char first_line[] = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n";
        EXPECT_EQ(answer->body, content.empty() ? "" : first_line + content + "\n") << request;
    }

    // The same, and all that the log says meanwhile: lines with bars between them, those that are no info
    // lines after the number of their level. Debug lines are patterns, and others may stand between them.
    // Not right after the same command by expect_answer, whose lines may still be on their way.
    void expect_trace(int status, uint32_t command, const std::string &request, const std::string &trace,
                      const std::string &content = "")
    {
        // Of heartbeats, of the way to the handler, of every writing of the file, and of the reading and the
        // making of documents and records.
        const std::regex aside("Error, unable to read the GUID of disk sda\\.|Received command code: "
                               ".*|Ready to write new schedule .*"
                               "|Disk L\\d retrieved\\.|Source (type|identity) for manual CDP creation: "
                               ".*|Searching for the mirror .*"
                               "|Found mirror .*|Mirror GUID .* retrieved\\.|Start to convert .*|Found "
                               "member disk: .*|Brace-enclosed .*"
                               "|Disk anomaly .*|Disk .* is dumped into .*|Conversion complete\\.");
        size_t at = log.size();
        expect_answer(status, command, request, content);
        // What was logged before may have been read from the log's socket only now.
        const size_t begin = at = log.expect(LOG_INFO, filled("Received command code: %.", command), at);
        std::string wanted, written;
        std::istringstream lines(trace);
        for (std::string line; std::getline(lines, line, '|');) {
            if (line.starts_with("7 ")) {
                at = log.expect_match(LOG_DEBUG, "func: .* msg: " + line.substr(2), at);
                continue;
            }
            const bool numbered = line[1] == ' ';
            at = log.expect(numbered ? line[0] - '0' : LOG_INFO, numbered ? line.substr(2) : line, at);
            wanted += (numbered ? line : "6 " + line) + '\n';
        }
        const std::vector<log_line> all = log.lines();
        for (size_t next = begin; next < all.size(); ++next) {
            const bool is_aside = std::regex_match(all[next].text, aside) || log.tolerates(all[next].text);
            if (all[next].level < LOG_DEBUG && !is_aside)
                written += std::to_string(all[next].level) + ' ' + all[next].text + '\n';
        }
        EXPECT_EQ(written, wanted) << request;
    }

    void adopt()
    {
        log.tolerate("Failed to process job"); // of a heartbeat that comes before heartbeats are switched on
        EXPECT_TRUE(ask(add_client_code, fake_manager::record("M-1", "127.0.0.1")));
    }

    struct refusal {
        uint32_t command;
        std::string not_adopted; // what the log says, as is UNREADABLE
        int status;              // for the request, which cannot be read, as is CONTENT
        std::string request, unreadable, content = "";
    };
    // Commands to a daemon that is not yet started, before and after its adoption.
    void expect_refusals(const std::vector<refusal> &cases)
    {
        daemon.start();
        for (const refusal &one : cases)
            expect_trace(50, one.command, one.request, one.not_adopted);
        adopt();
        for (const refusal &one : cases)
            expect_trace(one.status, one.command, one.request, one.unreadable, one.content);
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
