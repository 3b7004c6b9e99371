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
    for (const mount_record &mount : mounts) {
        const std::string line = std::to_string(mount.id) + " 1 " + std::to_string(major(mount.device)) +
                                 ":" + std::to_string(minor(mount.device)) + " / " +
                                 as_kernel_writes(mount.point) + " rw - t " + as_kernel_writes(mount.source) +
                                 " rw";
        const auto again = parse_mountinfo(line);
        require(again.size() == 1 && again[0].id == mount.id && again[0].device == mount.device &&
                    again[0].point == mount.point && again[0].source == mount.source,
                "a mount is read back");
    }
    return 0;
}
