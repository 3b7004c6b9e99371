#include "tests/platform/host.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/loop.h>
#include <sched.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

bool enter_private_mounts(std::string &reason)
{
    static const int error = [] {
        if (unshare(CLONE_NEWNS) != 0 || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
            return errno;
        return 0;
    }();
    reason = error == 0 ? "" : std::string("no mount namespace of our own (root needed): ") + strerror(error);
    return error == 0;
}

bool run(const std::string &command, const std::map<std::string, std::string> &variables)
{
    for (const auto &[name, value] : variables)
        setenv(name.c_str(), value.c_str(), 1);
    return system(("{ " + command + "; } >/dev/null 2>&1 </dev/null").c_str()) == 0;
}

std::string read_file(const std::string &path)
{
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

void write_file(const std::string &path, const std::string &text)
{
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << text;
}

static std::string make_temp_folder()
{
    std::string path = std::filesystem::temp_directory_path() / "qelcd-platform-XXXXXX";
    return mkdtemp(path.data()) ? path : "";
}

temp_folder::temp_folder() : path(make_temp_folder()) {}

temp_folder::~temp_folder()
{
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
}

covered_folder::covered_folder(const std::string &folder) : path(folder)
{
    if (mount("none", path.c_str(), "tmpfs", 0, nullptr) != 0)
        abort(); // anything else would be done to the host itself
}

covered_folder::~covered_folder()
{
    umount2(path.c_str(), MNT_DETACH);
}

loop_device::loop_device(const std::string &image, bool read_only)
{
    const int control = open("/dev/loop-control", O_RDWR | O_CLOEXEC);
    const int file = open(image.c_str(), (read_only ? O_RDONLY : O_RDWR) | O_CLOEXEC);
    // Somebody else may take the free device first, so a few attempts.
    for (int attempt = 0; attempt < 20 && path.empty() && control >= 0 && file >= 0; attempt++) {
        const std::string free_node = "/dev/loop" + std::to_string(ioctl(control, LOOP_CTL_GET_FREE));
        loop_config config{};
        config.fd = static_cast<uint32_t>(file);
        config.info.lo_flags =
            LO_FLAGS_AUTOCLEAR | LO_FLAGS_PARTSCAN | (read_only ? uint32_t{LO_FLAGS_READ_ONLY} : 0U);
        node = open(free_node.c_str(), (read_only ? O_RDONLY : O_RDWR) | O_CLOEXEC);
        if (node >= 0 && ioctl(node, LOOP_CONFIGURE, &config) == 0)
            path = free_node;
        else if (node >= 0)
            close(node);
    }
    close(file);
    close(control);
}

loop_device::~loop_device()
{
    if (path.empty())
        return;
    run("partx -d \"$DEV\"", {{"DEV", path}});
    close(node);
}

disk_list::disk_list(int flag)
{
    kav_list_init(&head);
    result = kavdisk_get_devs(&head, flag);
}

disk_list::~disk_list()
{
    kavdisk_free_devs(&head);
}

const kavdisk_dev *disk_list::find(const std::string &path) const
{
    for (kav_list *link = head.next; link != &head; link = link->next) {
        const auto *dev = kav_list_entry(link, kavdisk_dev, link);
        if (path == dev->path)
            return dev;
    }
    return nullptr;
}

const kavdisk_part *find_part(const kavdisk_dev *dev, const std::string &name)
{
    for (kav_list *link = dev->parts.next; link != &dev->parts; link = link->next) {
        const auto *part = kav_list_entry(link, kavdisk_part, link);
        if (name == part->name)
            return part;
    }
    return nullptr;
}
