#include "platform/linux/host/mountinfo.h"

#include "platform/linux/host/sysfs.h"
#include "platform/linux/host/text.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <optional>

namespace {

constexpr size_t mountinfo_limit = size_t{16} * 1024 * 1024;

bool is_octal_escape(std::string_view text)
{
    const auto is_digit = [](char c) { return c >= '0' && c <= '7'; };
    return text.size() >= 4 && text[0] == '\\' && text[1] <= '3' && is_digit(text[1]) && is_digit(text[2]) &&
           is_digit(text[3]);
}

// The kernel writes blank, tab, newline and backslash as a backslash and three octal digits.
std::string unescape(std::string_view text)
{
    std::string plain;
    while (!text.empty()) {
        const bool escaped = is_octal_escape(text);
        plain += escaped ? static_cast<char>((text[1] - '0') * 64 + (text[2] - '0') * 8 + (text[3] - '0'))
                         : text[0];
        text.remove_prefix(escaped ? 4 : 1);
    }
    return plain;
}

std::optional<mount_record> parse_line(std::string_view line)
{
    // id parent major:minor root point options [optional fields...] - type source super-options
    const auto fields = split(line, ' ');
    if (fields.size() < 9)
        return std::nullopt;
    const auto dash = std::find(fields.begin() + 6, fields.end(), "-");
    if (fields.end() - dash < 3)
        return std::nullopt;
    const auto id = parse_number(fields[0]);
    const auto device = parse_device_number(fields[2]);
    if (!id || !device)
        return std::nullopt;
    return mount_record{*id, *device, unescape(fields[4]), unescape(*(dash + 2))};
}

// False if another file system is mounted over the same point. Kernels before 5.8 do not tell; then true.
bool is_on_top(const mount_record &mount)
{
    struct statx facts {};
    if (statx(AT_FDCWD, mount.point.c_str(), AT_NO_AUTOMOUNT, STATX_MNT_ID, &facts) != 0)
        return false;
    return (facts.stx_mask & STATX_MNT_ID) == 0 || facts.stx_mnt_id == mount.id;
}

} // namespace

std::vector<mount_record> parse_mountinfo(std::string_view text)
{
    std::vector<mount_record> mounts;
    for (const std::string_view line : split(text, '\n')) {
        if (auto mount = parse_line(line))
            mounts.push_back(std::move(*mount));
    }
    return mounts;
}

std::vector<mount_record> read_mounts()
{
    return parse_mountinfo(read_bytes("/proc/self/mountinfo", mountinfo_limit).value_or(""));
}

bool mounts_device(const mount_record &mount, dev_t device)
{
    if (mount.device == device)
        return true;
    struct stat node {};
    return major(mount.device) == 0 && mount.source.starts_with("/dev/") &&
           stat(mount.source.c_str(), &node) == 0 && S_ISBLK(node.st_mode) && node.st_rdev == device;
}

uint64_t used_bytes(const std::vector<mount_record> &mounts, dev_t device)
{
    for (const mount_record &mount : mounts) {
        struct statvfs usage {};
        if (mounts_device(mount, device) && is_on_top(mount) && statvfs(mount.point.c_str(), &usage) == 0)
            return uint64_t{usage.f_blocks - usage.f_bfree} * usage.f_frsize;
    }
    return 0;
}
