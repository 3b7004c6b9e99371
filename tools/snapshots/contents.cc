#include "tools/snapshots/contents.h"

#include "base/fd.h"
#include "platform/linux/host/sysfs.h"
#include "tools/common/human_text.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <thread>

namespace {
constexpr std::chrono::seconds node_limit{5}; // until udev has made a node
constexpr std::chrono::milliseconds node_pause{50};

// The superblock of ext2 to ext4 (the kernel's Documentation/filesystems/ext4/super.rst).
void read_last_mount(int fd, content *one)
{
    constexpr size_t time_at = 0x2c, folder_at = 0x88, folder_size = 64, high_time_at = 0x274;
    constexpr off_t superblock_at = 1024;
    unsigned char block[1024];
    if (pread(fd, block, sizeof block, static_cast<off_t>(one->offset) + superblock_at) != sizeof block)
        return;
    for (size_t i = 0; i < 4; i++)
        one->last_mount |= static_cast<uint64_t>(block[time_at + i]) << (8 * i);
    one->last_mount |= static_cast<uint64_t>(block[high_time_at]) << 32;
    const auto *folder = reinterpret_cast<const char *>(block + folder_at);
    one->last_folder = one->last_mount == 0 ? "" : std::string(folder, strnlen(folder, folder_size));
}

content content_at(int fd, uint64_t partition, uint64_t offset, uint64_t size)
{
    content one{partition, offset, size, "", ""};
    one.type = read_file_system(fd, offset, size, &one.label).value_or("");
    if (one.type == "ext2" || one.type == "ext3" || one.type == "ext4")
        read_last_mount(fd, &one);
    return one;
}

bool is_block_device(const std::string &path)
{
    struct stat facts {};
    return stat(path.c_str(), &facts) == 0 && S_ISBLK(facts.st_mode);
}

// The name of the partition in sysfs; "" if the kernel does not show it.
std::string partition_name(const std::string &disk, uint64_t number)
{
    const std::string folder = "/sys/block/" + disk + "/";
    for (const std::string &name : list_folder(folder).value_or(std::vector<std::string>{})) {
        if (read_number(folder + name + "/partition") == number)
            return name;
    }
    return "";
}
} // namespace

std::optional<std::vector<content>> contents_of(const std::string &device, std::string *why)
{
    const unique_fd fd(open(device.c_str(), O_RDONLY | O_CLOEXEC));
    const off_t end = fd.is_open() ? lseek(fd.get(), 0, SEEK_END) : -1;
    if (end < 0) {
        *why = device + ": " + strerror(errno);
        return std::nullopt;
    }
    // The partitions have caches of their own, and what was written through them is not in this one.
    posix_fadvise(fd.get(), 0, 0, POSIX_FADV_DONTNEED);
    std::vector<content> all;
    if (content whole = content_at(fd.get(), 0, 0, static_cast<uint64_t>(end)); !whole.type.empty())
        all.push_back(std::move(whole));
    constexpr uint64_t largest = INT64_MAX / 512;
    for (const table_entry &entry : read_table(fd.get())) {
        if (entry.start <= largest && entry.sectors <= largest)
            all.push_back(content_at(fd.get(), entry.number, entry.start * 512, entry.sectors * 512));
    }
    return all;
}

std::optional<device_kind> kind_of(const std::string &device)
{
    const unique_fd fd(open(device.c_str(), O_RDONLY | O_CLOEXEC));
    if (!fd.is_open())
        return std::nullopt;
    const auto found = read_content(fd.get());
    const bool is_blank = found && !found->superblock && found->table == table_type::none;
    return device_kind{read_table_type(fd.get()), is_blank};
}

bool is_mountable(const content &one)
{
    constexpr const char *others[] = {"",       "swap",           "swsuspend", "crypto_LUKS",     "BitLocker",
                                      "bcache", "DM_verity_hash", "jbd",       "xfs_external_log"};
    return std::ranges::find(others, one.type) == std::end(others) && !one.type.ends_with("_member");
}

std::string mount_options(const std::string &type)
{
    if (type == "xfs")
        return "ro,nouuid,norecovery";
    if (type == "ext3" || type == "ext4")
        return "ro,noload";
    if (type == "f2fs" || type == "nilfs2")
        return "ro,norecovery";
    return type == "btrfs" ? "ro,rescue=nologreplay" : "ro";
}

std::string text_of(const content &one)
{
    const std::string place =
        one.partition == 0 ? "the whole disk" : "partition " + std::to_string(one.partition);
    return place + " (" + (one.type.empty() ? "nothing known" : one.type) +
           (one.label.empty() ? "" : " \"" + one.label + "\"") + ", " + size_text(one.size) + ")";
}

std::string kernel_name_of(const std::string &device)
{
    char real[PATH_MAX];
    return disk_name_of(realpath(device.c_str(), real) ? real : device);
}

std::optional<std::string> partition_device(const std::string &device, uint64_t number, std::string *why)
{
    const std::string disk = kernel_name_of(device);
    const auto end = std::chrono::steady_clock::now() + node_limit;
    for (;;) {
        const std::string name = partition_name(disk, number);
        std::string path = "/dev/" + name;
        std::ranges::replace(path, '!', '/');
        if (!name.empty() && is_block_device(path))
            return path;
        *why = name.empty() ? "the kernel shows no partition " + std::to_string(number) + " of " + device
                            : "there is no node " + path + ", which udev makes";
        if (name.empty() || std::chrono::steady_clock::now() >= end)
            return std::nullopt;
        std::this_thread::sleep_for(node_pause);
    }
}
