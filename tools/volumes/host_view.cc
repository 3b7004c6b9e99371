#include "tools/volumes/host_view.h"

#include "base/fd.h"
#include "platform/linux/devices/disk_signature.h"
#include "platform/linux/devices/scsi_guid.h"
#include "platform/linux/host/mountinfo.h"
#include "platform/linux/host/sysfs.h"
#include "platform/linux/host/text.h"
#include "platform/linux/mirror/record.h"
#include "tools/volumes/first_sector.h"

#include <strings.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

namespace {
constexpr int most_layers = 16; // of devices on devices; more must be a circle

// An LVM volume and its snapshots show what the loop device over it shows. No relationship can use them.
bool is_out_of_use(const disk_facts &disk)
{
    return access((disk.folder + "/dm").c_str(), F_OK) == 0 ||
           access((disk.folder + "/md").c_str(), F_OK) == 0 || read_number(disk.folder + "/ro") != 0U;
}

std::string guid_of(const disk_facts &disk)
{
    if (is_out_of_use(disk))
        return "";
    const char *vendor = disk.vendor ? disk.vendor->c_str() : nullptr;
    const char *model = disk.model ? disk.model->c_str() : nullptr;
    return is_storage_volume(vendor, model) ? read_scsi_guid(disk.folder).value_or("") : guid_in(disk.path);
}

// The kernel's name of what a path or a bare name stands for.
std::string kernel_name(const std::string &name)
{
    char real[PATH_MAX];
    const std::string path = name.find('/') == std::string::npos ? "/dev/" + name : name;
    return disk_name_of(realpath(path.c_str(), real) ? real : path);
}

bool has_name(const known_disk &disk, const std::string &name, const std::string &kernel)
{
    return disk.facts.name == kernel ||
           (!disk.guid.empty() && strcasecmp(disk.guid.c_str(), name.c_str()) == 0);
}

std::string folder_of(dev_t device)
{
    const std::string link =
        "/sys/dev/block/" + std::to_string(major(device)) + ":" + std::to_string(minor(device));
    char real[PATH_MAX];
    return realpath(link.c_str(), real) ? real : "";
}

std::string last_word(const std::string &path)
{
    return path.substr(path.rfind('/') + 1);
}

std::optional<dev_t> device_in(const std::string &folder)
{
    const auto text = read_attribute(folder + "/dev");
    return text ? parse_device_number(*text) : std::nullopt;
}

bool layer_lies_on(dev_t device, const std::string &disk_name, int layers);

bool path_lies_on(const std::string &path, const std::string &disk_name, int layers)
{
    struct stat facts {};
    return stat(path.c_str(), &facts) == 0 &&
           layer_lies_on(S_ISBLK(facts.st_mode) ? facts.st_rdev : facts.st_dev, disk_name, layers);
}

// A file system that may span several devices has a number of its own; its mount names one of them.
bool file_system_lies_on(dev_t device, const std::string &disk_name, int layers)
{
    const auto mounts = read_mounts();
    return std::any_of(mounts.begin(), mounts.end(), [&](const mount_record &mount) {
        return mount.device == device && mount.source.starts_with("/dev/") &&
               path_lies_on(mount.source, disk_name, layers);
    });
}

bool layer_lies_on(dev_t device, const std::string &disk_name, int layers)
{
    if (layers == most_layers)
        return false;
    const std::string folder = folder_of(device);
    if (folder.empty())
        return major(device) == 0 && file_system_lies_on(device, disk_name, layers + 1);
    if (last_word(folder) == disk_name)
        return true;
    if (read_attribute(folder + "/partition"))
        return last_word(folder.substr(0, folder.rfind('/'))) == disk_name;
    if (const auto file = read_attribute(folder + "/loop/backing_file"))
        return path_lies_on(*file, disk_name, layers + 1);
    const auto slaves = list_folder(folder + "/slaves").value_or(std::vector<std::string>{});
    return std::any_of(slaves.begin(), slaves.end(), [&](const std::string &slave) {
        const auto below = device_in("/sys/class/block/" + slave);
        return below && layer_lies_on(*below, disk_name, layers + 1);
    });
}
} // namespace

std::optional<std::vector<known_disk>> known_disks()
{
    const auto names = host_disk_names();
    if (!names)
        return std::nullopt;
    std::vector<known_disk> disks;
    for (const std::string &name : *names) {
        if (auto facts = read_disk(name)) {
            const std::string guid = guid_of(*facts);
            disks.push_back({std::move(*facts), guid});
        }
    }
    return disks;
}

std::optional<known_disk> find_disk(const std::string &name, std::string *why)
{
    auto disks = known_disks();
    if (!disks) {
        *why = std::string("the disks cannot be listed: ") + strerror(errno);
        return std::nullopt;
    }
    const std::string kernel = kernel_name(name);
    std::erase_if(*disks, [&](const known_disk &disk) { return !has_name(disk, name, kernel); });
    if (disks->size() == 1 && disks->front().facts.sectors > 0)
        return disks->front();
    if (disks->size() > 1)
        *why = "there are several disks with this GUID";
    else if (!disks->empty())
        *why = "it has no size";
    else if (read_attribute("/sys/class/block/" + kernel + "/partition"))
        *why = "it is a partition; name the whole disk";
    else
        *why = "there is no such disk";
    return std::nullopt;
}

std::string name_of_disk(const std::string &guid)
{
    std::string why;
    const auto disk = find_disk(guid, &why);
    return disk ? disk->facts.name : guid;
}

uint64_t logical_block_of(const disk_facts &disk)
{
    return read_number(disk.folder + "/queue/logical_block_size").value_or(512);
}

bool lies_on(dev_t device, const std::string &disk_name)
{
    return layer_lies_on(device, disk_name, 0);
}

std::optional<std::map<std::string, std::string>> sources_by_mirror()
{
    const auto mirrors = load_mirrors(bad_files::left_alone);
    if (!mirrors)
        return std::nullopt;
    std::map<std::string, std::string> sources;
    for (const mirror_record &mirror : *mirrors)
        sources[mirror.dest_guid] = mirror.src_guid;
    return sources;
}

std::string unused_guid(const std::set<std::string> &taken)
{
    for (;;) {
        disk_signature signature{};
        if (getrandom(signature.data(), signature.size(), 0) != static_cast<ssize_t>(signature.size()))
            continue;
        std::string guid = guid_of_signature(signature).value_or("");
        // All ones are what the daemon says of a disk that it cannot read.
        if (!guid.empty() && !guid.starts_with("ffffffff") && !taken.contains(guid))
            return guid;
    }
}
