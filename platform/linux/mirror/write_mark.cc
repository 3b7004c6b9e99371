#include "platform/linux/mirror/write_mark.h"

#include "platform/linux/host/sysfs.h"

#include <fcntl.h>

#include <cstdlib>

namespace {

constexpr size_t sectors_written = 6; // index of the field
constexpr size_t sectors_discarded = 13;

std::string stat_of(const std::string &name)
{
    return "/sys/block/" + name + "/stat";
}

// Kernels before 4.18 do not count discards.
std::optional<uint64_t> sectors_in(const char *stat)
{
    uint64_t sectors = 0;
    size_t field = 0;
    for (; field <= sectors_discarded; field++) {
        char *end = nullptr;
        const uint64_t value = strtoull(stat, &end, 10);
        if (end == stat)
            break;
        if (field == sectors_written || field == sectors_discarded)
            sectors += value;
        stat = end;
    }
    return field > sectors_written ? std::optional(sectors) : std::nullopt;
}

} // namespace

// Read once: it does not change while this process lives.
const std::string &boot_id()
{
    // Never destroyed: threads may still use it while the process ends.
    static const auto *id = new std::string(read_attribute("/proc/sys/kernel/random/boot_id").value_or(""));
    return *id;
}

unique_fd open_counters(const std::string &name)
{
    return unique_fd(open(stat_of(name).c_str(), O_RDONLY | O_CLOEXEC));
}

std::optional<uint64_t> sectors_changed(const unique_fd &counters)
{
    char text[512];
    const ssize_t count = pread(counters.get(), text, sizeof text - 1, 0);
    if (count <= 0)
        return std::nullopt;
    text[count] = '\0';
    return sectors_in(text);
}

std::optional<write_mark> read_write_mark(const std::string &name)
{
    const std::string folder = "/sys/block/" + name;
    if (boot_id().empty() || read_number(folder + "/queue/iostats") == 0U)
        return std::nullopt;
    const auto sectors = sectors_changed(open_counters(name));
    if (!sectors)
        return std::nullopt;
    return write_mark{boot_id(), read_attribute(folder + "/diskseq").value_or(""), *sectors};
}

// The file holds two numbers: reads and writes.
bool has_writes_in_flight(const std::string &name)
{
    const std::string text = read_attribute("/sys/block/" + name + "/inflight").value_or("");
    const size_t last = text.find_last_not_of("0123456789");
    return last == std::string::npos || text.substr(last + 1) != "0";
}
