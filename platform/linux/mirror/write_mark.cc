#include "platform/linux/mirror/write_mark.h"

#include "platform/linux/host/sysfs.h"
#include "platform/linux/host/text.h"

namespace {

constexpr size_t sectors_written = 6; // index of the field
constexpr size_t sectors_discarded = 13;

// Read once: it does not change while this process lives.
const std::string &boot_id()
{
    // Never destroyed: threads may still use it while the process ends.
    static const auto *id = new std::string(read_attribute("/proc/sys/kernel/random/boot_id").value_or(""));
    return *id;
}

} // namespace

std::optional<write_mark> read_write_mark(const std::string &name)
{
    const std::string folder = "/sys/block/" + name;
    if (boot_id().empty() || read_number(folder + "/queue/iostats") == 0U)
        return std::nullopt;
    // No stream: it would swallow an exception, and with it fields.
    const std::string stat = read_attribute(folder + "/stat").value_or("");
    const auto fields = split(stat, ' ');
    // Kernels before 4.18 do not count discards.
    const bool counts_discards = fields.size() > sectors_discarded;
    const auto discarded = parse_number(counts_discards ? fields[sectors_discarded] : "0");
    const auto written = parse_number(fields.size() > sectors_written ? fields[sectors_written] : "");
    if (!written || !discarded)
        return std::nullopt;
    return write_mark{boot_id(), read_attribute(folder + "/diskseq").value_or(""), *written + *discarded};
}
