// Small files of the kernel and of /etc, as the daemon and its platform libraries read them.
#include "client/host.h"
#include "client/sysfs.h"
#include "platform/linux/disks/host_disks.h"
#include "platform/linux/host/sysfs.h"
#include "platform/linux/host/text.h"
#include "platform/linux/mirror/write_mark.h"
#include "tests/fuzz/fuzz.h"

#include <sys/mount.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <filesystem>
#include <sstream>

namespace {
const memory_file file;

void read_attribute_file()
{
    const auto text = read_attribute(file.path());
    require(text && text->size() <= file.content().size(), "an attribute is part of its file");
    require(disk_name_of(*text).find('/') == std::string::npos, "a name in sysfs has no slash");
    static_cast<void>(trim_padding(*text));
}

void read_number_file()
{
    const auto number = read_number(file.path());
    const std::string text = number ? std::to_string(*number) : "";
    require(file.content().find(text) != std::string::npos, "a number is written in its file");
}

void read_device_number()
{
    const std::string text = read_attribute(file.path()).value_or("");
    const auto device = parse_device_number(text);
    const std::string again =
        device ? std::to_string(major(*device)) + ":" + std::to_string(minor(*device)) : "";
    require(!device || parse_device_number(again) == device, "a device number is read back");
}

void read_first_line()
{
    std::string line;
    const int length = sysfs_read_attribute(&line, file.path());
    require(length == static_cast<int>(line.size()) && length < 512 && line.find('\n') == std::string::npos,
            "a line is short and has no end");
}

void read_version()
{
    put_file("/etc/issue", file.content());
    const optional_text version = get_osver();
    require(!version || (version->size() <= 512 && version->find('\n') == std::string::npos),
            "a version is one short line");
}

void read_mounts_of_system()
{
    unlink("/etc/mtab");
    put_file("/etc/mtab", file.content());
    const mount_table mounts = read_mount_table();
    for (const std::string &line : mounts.system_lines)
        require(line.size() < 512 && is_boot_dev(mounts, line.c_str()) == 1,
                "a line of the system's disk is found");
}

// A disk with a partition; each line of the file is the content of one attribute.
void read_kernels_disk()
{
    static const std::string folder = "/sys/block/a!b/";
    std::istringstream lines(file.content());
    for (const char *attribute : {"dev", "size", "stat", "device/vendor", "device/model", "a1/partition",
                                  "a1/start", "a1/size", "a1/dev", "diskseq"}) {
        std::string line;
        std::getline(lines, line);
        put_file(folder + attribute, line + "\n");
    }
    const auto names = host_disk_names();
    require(names && names->size() == 1, "a disk is listed");
    const auto disk = read_disk(names->front());
    require(!disk ||
                (disk->path == "/dev/a/b" && disk->vendor && disk->model && disk->partitions.size() <= 1),
            "a disk has a path, vendor and model");
    const auto mark = read_write_mark(names->front());
    require(!mark || !mark->boot.empty(), "a mark of writes belongs to a boot");
}

bool make_host()
{
    require_private_host();
    require(mount("fuzz", "/sys/block", "tmpfs", 0, nullptr) == 0, "a folder can be laid over the kernel's");
    std::filesystem::create_directories("/sys/block/a!b/device");
    std::filesystem::create_directories("/sys/block/a!b/a1");
    return true;
}

constexpr void (*readers[])() = {read_attribute_file, read_number_file, read_device_number,
                                 read_first_line,     read_version,     read_mounts_of_system,
                                 read_kernels_disk};
} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const bool is_ready = make_host();
    static_cast<void>(is_ready);
    const fuzz_input input(data, size, std::size(readers));
    file.set(input.bytes);
    readers[input.choice]();
    return 0;
}
