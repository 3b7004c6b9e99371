// What many CDP schedules cost: loading them, registering them, a pass of the timer over them, and changing
// one of them, which rewrites the file. Uses the real configuration file, so it runs only in a private host.
//
//   bench-schedules

#include "commands/schedules.h"

#include "base/clock.h"
#include "base/log.h"
#include "base/xml.h"
#include "config/config.h"
#include "jobs/cdp_schedule.h"
#include "jobs/timer.h"
#include "protocol/commands.h"
#include "protocol/request.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {
using steady = std::chrono::steady_clock;

constexpr std::array<size_t, 3> sizes = {10, 100, 1000}; // disks with a schedule
constexpr size_t disks_per_group = 5;                    // one group for each so many of them
constexpr size_t members = 50;                           // of each group
constexpr size_t rounds = 41;

// Every schedule started half an interval ago and runs next in another half: none falls due while measured.
constexpr uint32_t interval = 7200;
constexpr uint32_t changed_interval = interval + 60;

[[noreturn]] void give_up(const char *what)
{
    fprintf(stderr, "bench-schedules: %s\n", what);
    exit(1);
}

// --- The host that is measured -----------------------------------------------------------------------------

std::string guid_of(size_t number)
{
    char text[64];
    snprintf(text, sizeof text, "%08zx-0000-0000-0000-000000000000", number);
    return text;
}

void add_schedules(qel_t &c, size_t schedules, uint64_t start)
{
    for (size_t i = 0; i < schedules; ++i)
        c.cdpsch_list.push_back({.local_lun = guid_of(i),
                                 .mirror_lun = guid_of(schedules + i),
                                 .cdp_con_start_time = start,
                                 .cdp_start_time = start,
                                 .cdp_timeout = interval});
}

// Loading moves the next run of a disk's schedule on, but not that of a group's.
void add_groups(qel_t &c, size_t groups, uint64_t start)
{
    for (size_t i = 0; i < groups; ++i) {
        qel_group &group = c.group_list.emplace_back();
        group.name = "group " + std::to_string(i);
        group.cdp_con_start_time = start;
        group.cdp_start_time = start + interval;
        group.cdp_timeout = interval;
        for (size_t m = 0; m < members; ++m)
            group.member_list.push_back({guid_of(i * members + m)});
    }
}

std::unique_ptr<qel_t> load(size_t schedules)
{
    std::unique_ptr<qel_t> c = qel_load();
    if (!c || c->cdpsch_list.size() != schedules || c->group_list.size() != schedules / disks_per_group ||
        c->group_list.back().member_list.size() != members)
        give_up("the file was not read back whole");
    return c;
}

struct bench_host {
    size_t schedules;
    std::string change; // the body of a request for the schedule in the middle of the list
    std::unique_ptr<qel_t> record;

    explicit bench_host(size_t number);
    ~bench_host()
    {
        job_free_all();
        g_client = nullptr;
    }
    bench_host(const bench_host &) = delete;
    bench_host &operator=(const bench_host &) = delete;
};

bench_host::bench_host(size_t number) : schedules(number)
{
    const uint64_t start = static_cast<uint64_t>(clock_wall()) - interval / 2;
    qel_t c;
    c.guid = guid_of(1);
    c.manager = std::make_unique<qel_manager>();
    c.manager->guid = guid_of(2);
    add_schedules(c, schedules, start);
    add_groups(c, schedules / disks_per_group, start);
    qel_save(&c);
    change = R"(<Tessaron><Backup SourceType="2" Source=")" + guid_of(schedules / 2) +
             R"("><Schedule StartTime=")" + std::to_string(start) + R"(" IntervalSeconds=")" +
             std::to_string(changed_interval) + R"("/></Backup></Tessaron>)";
    record = load(schedules);
    g_client = record.get();
}

// --- What is measured: each step proves that it was done, and returns its seconds --------------------------

// On a host all of this is rare, and the caches hold other data. With warm caches a short list would look
// cheaper than it is, just because it fits.
void cool_caches()
{
    constexpr size_t line = 64;
    static std::vector<char> other(size_t{64} << 20);
    for (size_t i = 0; i < other.size(); i += line)
        ++other[i];
}

template <class Work>
double seconds_of(Work work)
{
    cool_caches();
    const auto start = steady::now();
    work();
    return std::chrono::duration<double>(steady::now() - start).count();
}

double load_file(bench_host &host)
{
    std::unique_ptr<qel_t> loaded;
    return seconds_of([&] { loaded = load(host.schedules); });
}

// From no job, as at start.
double register_all(bench_host &host)
{
    job_free_all();
    bool done = true;
    const double seconds = seconds_of([&] {
        for (const qel_cdpsch &schedule : host.record->cdpsch_list)
            done = _register_for_cdpsch(&schedule) == 0 && done;
        for (const qel_group &group : host.record->group_list)
            done = _register_for_grpsch(&group) == 0 && done;
    });
    if (!done || !job_find_cdp(guid_of(host.schedules / 2).c_str()) || !job_find_grp("group 0"))
        give_up("a schedule was not registered");
    return seconds;
}

// Over the jobs that register_all has left, at a time when the first run decides when to wake up.
double pass_over_all(bench_host & /*host*/)
{
    const int64_t now = clock_monotonic() + interval / 2 - 300;
    int64_t wake = now;
    const double seconds = seconds_of([&] { wake = timer_pass(now); });
    if (wake <= now || wake > now + 300)
        give_up("the pass did not meet the jobs, or one was due");
    return seconds;
}

double change_one(bench_host &host)
{
    const std::unique_ptr<request> req = new_request();
    req->recv_xml.reset(strdup(host.change.c_str()));
    int status = status_failure;
    const double seconds = seconds_of([&] { status = set_cdp_schedule(req.get()); });
    if (status != status_ok)
        give_up("the schedule was not changed");
    return seconds;
}

struct step {
    const char *name;
    int level; // of the log
    double (*measured)(bench_host &host);
    std::array<std::vector<double>, sizes.size()> seconds{}; // one of each round
};

// Some of them write log lines at the usual level; the runs without these lines show the daemon's own cost.
std::array steps = {
    step{"load the file", LOG_INFO, load_file},
    step{"register all", LOG_INFO, register_all},
    step{"register all, no log lines", LOG_ERR, register_all},
    step{"one timer pass, nothing due", LOG_INFO, pass_over_all},
    step{"set_cdp_schedule", LOG_INFO, change_one},
    step{"set_cdp_schedule, no log lines", LOG_ERR, change_one},
};

void check_change(const bench_host &host)
{
    const std::unique_ptr<qel_t> written = load(host.schedules);
    const auto changed =
        std::count_if(written->cdpsch_list.begin(), written->cdpsch_list.end(),
                      [](const qel_cdpsch &schedule) { return schedule.cdp_timeout == changed_interval; });
    if (changed != 1)
        give_up("the change is not in the file");
}

// Measures the sizes in turns, so that other load on the machine affects all of them.
void measure()
{
    for (size_t round = 0; round < rounds; ++round) {
        for (size_t size = 0; size < sizes.size(); ++size) {
            set_log_level(LOG_ERR);
            bench_host host(sizes[size]);
            for (step &s : steps) {
                set_log_level(s.level);
                s.measured(host); // the first run pays for what the previous step left in the heap
                s.seconds[size].push_back(s.measured(host));
            }
            check_change(host);
        }
    }
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

// The median growth from one size to the next within a round: load that slows some rounds affects both times
// of a round, but not two medians alike.
double growth(const step &s, size_t size)
{
    std::vector<double> ratios;
    for (size_t round = 0; round < rounds; ++round)
        ratios.push_back(s.seconds[size + 1][round] / s.seconds[size][round]);
    return median(ratios);
}

void print()
{
    printf("| µs for so many schedules |");
    for (const size_t size : sizes)
        printf(" %zu |", size);
    printf(" growth per tenfold |\n|---|---:|---:|---:|---:|\n");
    for (const step &s : steps) {
        printf("| %s |", s.name);
        for (const std::vector<double> &times : s.seconds)
            printf(" %.1f |", median(times) * 1e6);
        printf(" ×%.1f, ×%.1f |\n", growth(s, 0), growth(s, 1));
    }
}

// The reader of the log pauses between batches. The lines of a thousand schedules come at once; without a
// large buffer, waiting for the reader would be measured.
void open_wide_log()
{
    openlog("bench-schedules", LOG_NDELAY, LOG_USER);
    constexpr int bytes = 8 << 20;
    constexpr int first = 3;
    constexpr int beyond = 16;
    bool done = false;
    for (int fd = first; fd < beyond; ++fd)
        done = setsockopt(fd, SOL_SOCKET, SO_SNDBUFFORCE, &bytes, sizeof bytes) == 0 || done;
    if (!done)
        give_up("no reader at /dev/log, or not root");
}
} // namespace

int main()
{
    if (access("/run/private-host", F_OK) != 0)
        give_up("writes the configuration file of this host; run it by scripts/private-host");
    open_wide_log();
    xml_init();
    measure();
    print();
}
