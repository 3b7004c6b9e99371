#include "tools/qelc/health/daemon_process.h"

#include "base/number.h"
#include "platform/linux/host/sysfs.h"
#include "platform/linux/host/text.h"
#include "tools/qelc/config_check.h"

#include <unistd.h>

#include <algorithm>
#include <string>

namespace {
std::string folder_of(pid_t process)
{
    return "/proc/" + std::to_string(process);
}

// Of the supervisor, who has no other children (proc(5): the file needs CONFIG_PROC_CHILDREN).
pid_t child_of(pid_t supervisor)
{
    const std::string number = std::to_string(supervisor);
    const auto children = read_attribute("/proc/" + number + "/task/" + number + "/children");
    return children ? scan_int(children->c_str()) : 0;
}

// Field 22 of stat is in clock ticks since the boot (proc(5)); the name in field 2 may hold anything.
time_t start_of(pid_t process)
{
    constexpr size_t started = 19; // behind the name
    const std::string stat = read_attribute(folder_of(process) + "/stat").value_or("");
    const size_t end_of_name = std::min(stat.rfind(')'), stat.size() - 1);
    const auto fields = split(std::string_view(stat).substr(end_of_name + 1), ' ');
    const auto ticks = fields.size() > started ? parse_number(fields[started]) : std::nullopt;
    if (!ticks)
        return 0;
    timespec now{}, up{};
    clock_gettime(CLOCK_REALTIME, &now);
    clock_gettime(CLOCK_BOOTTIME, &up);
    constexpr int64_t in_a_second = 1'000'000'000;
    const auto begin = static_cast<int64_t>(*ticks) * (in_a_second / sysconf(_SC_CLK_TCK));
    const int64_t booted = (now.tv_sec - up.tv_sec) * in_a_second + now.tv_nsec - up.tv_nsec;
    return static_cast<time_t>((booted + begin) / in_a_second);
}

// What the two share counts half for each of them.
std::optional<uint64_t> memory_of(pid_t process)
{
    constexpr std::string_view key = "\nPss:";
    const std::string sums = read_attribute(folder_of(process) + "/smaps_rollup").value_or("");
    const size_t line = sums.find(key);
    if (line == std::string::npos)
        return std::nullopt;
    return scan_unsigned(sums.c_str() + line + key.size()) * 1024;
}
} // namespace

pid_t find_worker()
{
    const pid_t supervisor = supervisor_pid();
    return supervisor == 0 ? 0 : child_of(supervisor);
}

std::optional<daemon_process> find_daemon()
{
    const pid_t supervisor = supervisor_pid();
    if (supervisor == 0)
        return std::nullopt;
    daemon_process seen{.worker = child_of(supervisor)};
    if (seen.worker != 0)
        seen.since = start_of(seen.worker);
    const auto first = memory_of(supervisor);
    const auto second = seen.worker != 0 ? memory_of(seen.worker) : std::nullopt;
    if (first && second)
        seen.memory = *first + *second;
    return seen;
}
