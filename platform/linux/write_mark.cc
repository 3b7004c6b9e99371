#include "platform/linux/write_mark.h"

#include "platform/linux/sysfs.h"
#include "platform/linux/text.h"

#include <sstream>

namespace {

constexpr int fields_before_sectors_written = 6;

// The machine has not been booted anew for as long as this process lives.
const std::string &boot_id()
{
    // Never destroyed: threads may still ask while the process ends.
    static const auto *id = new std::string(read_attribute("/proc/sys/kernel/random/boot_id").value_or(""));
    return *id;
}

} // namespace

std::optional<write_mark> read_write_mark(const std::string &name)
{
    const std::string folder = "/sys/block/" + name;
    if (boot_id().empty() || read_number(folder + "/queue/iostats") == 0U)
        return std::nullopt;
    std::istringstream fields(read_attribute(folder + "/stat").value_or(""));
    std::string field;
    for (int i = 0; i <= fields_before_sectors_written; i++)
        fields >> field;
    const auto sectors = fields ? parse_number(field) : std::nullopt;
    if (!sectors)
        return std::nullopt;
    return write_mark{boot_id(), read_attribute(folder + "/diskseq").value_or(""), *sectors};
}
