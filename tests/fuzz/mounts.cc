// The mount table: a mount that was read is read again from a line as the kernel writes it.
#include "platform/linux/host/mountinfo.h"
#include "tests/fuzz/fuzz.h"

#include <sys/sysmacros.h>

#include <algorithm>
#include <utility>

namespace {
std::string as_kernel_writes(const std::string &text)
{
    std::string line;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte > ' ' && byte != '\\') {
            line += c;
            continue;
        }
        line += {'\\', static_cast<char>('0' + byte / 64), static_cast<char>('0' + byte / 8 % 8),
                 static_cast<char>('0' + byte % 8)};
    }
    return line;
}
} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string text(reinterpret_cast<const char *>(data), size);
    const auto mounts = parse_mountinfo(text);
    require(std::cmp_less_equal(mounts.size(), std::count(text.begin(), text.end(), '\n') + 1),
            "a mount has a line");
    std::string table;
    for (const mount_record &mount : mounts)
        table += std::to_string(mount.id) + " 1 " + std::to_string(major(mount.device)) + ":" +
                 std::to_string(minor(mount.device)) + " / " + as_kernel_writes(mount.point) + " rw - t " +
                 as_kernel_writes(mount.source) + " rw\n";
    const auto again = parse_mountinfo(table);
    require(std::equal(mounts.begin(), mounts.end(), again.begin(), again.end(),
                       [](const mount_record &one, const mount_record &other) {
                           return one.id == other.id && one.device == other.device &&
                                  one.point == other.point && one.source == other.source;
                       }),
            "mounts are read back");
    return 0;
}
