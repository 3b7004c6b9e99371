#include "tools/volumes/loop_device.h"

#include "base/fd.h"
#include "platform/linux/host/sysfs.h"
#include "platform/linux/host/text.h"

#include <fcntl.h>
#include <linux/loop.h>
#include <sys/ioctl.h>
#include <sys/stat.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

namespace {
constexpr int attach_attempts = 100; // others take loop devices, too
constexpr int detach_attempts = 40;  // udev, or a look at all disks, may have it open for a moment
constexpr useconds_t pause_us = 50000;

// Where nobody makes device nodes, e.g. in a chroot, the node of a new loop device is missing.
void make_node(const std::string &name)
{
    const auto device = read_attribute("/sys/block/" + name + "/dev");
    const auto number = device ? parse_device_number(*device) : std::nullopt;
    if (number)
        mknod(("/dev/" + name).c_str(), S_IFBLK | 0600, *number); // EEXIST as a rule
}

std::string resolved(const std::string &path)
{
    char real[PATH_MAX];
    return realpath(path.c_str(), real) ? real : path;
}

std::string file_name(const std::string &path)
{
    return path.substr(path.rfind('/') + 1);
}

// loop_info64 has device numbers as dev_t has them, up to 32 bits.
bool shows(int loop, const struct stat &store)
{
    loop_info64 info{};
    if (ioctl(loop, LOOP_GET_STATUS64, &info) != 0)
        return false;
    return S_ISBLK(store.st_mode) ? info.lo_rdevice == store.st_rdev
                                  : info.lo_device == store.st_dev && info.lo_inode == store.st_ino;
}

bool is_over(const std::string &path, const std::string &store)
{
    struct stat facts {};
    const unique_fd loop(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    return loop.is_open() && stat(store.c_str(), &facts) == 0 && shows(loop.get(), facts);
}

loop_config configuration(int store, uint64_t size, uint64_t block)
{
    loop_config config{};
    config.fd = static_cast<uint32_t>(store);
    config.block_size = static_cast<uint32_t>(block);
    config.info.lo_sizelimit = size;
    config.info.lo_flags = LO_FLAGS_DIRECT_IO;
    return config;
}

// False with errno; EBUSY: another process has taken that loop device first.
bool configure_next(int control, const loop_config &config, std::string *path)
{
    const int number = ioctl(control, LOOP_CTL_GET_FREE);
    if (number < 0)
        return false;
    const std::string name = "loop" + std::to_string(number);
    *path = "/dev/" + name;
    make_node(name);
    const unique_fd loop(open(path->c_str(), O_RDWR | O_CLOEXEC));
    return loop.is_open() && ioctl(loop.get(), LOOP_CONFIGURE, &config) == 0;
}

// With a flag that ends the loop device when the last one closes it; without it.
bool set_autoclear(int loop, bool wanted)
{
    loop_info64 info{};
    if (ioctl(loop, LOOP_GET_STATUS64, &info) != 0)
        return false;
    info.lo_flags = wanted ? info.lo_flags | LO_FLAGS_AUTOCLEAR
                           : info.lo_flags & ~static_cast<uint32_t>(LO_FLAGS_AUTOCLEAR);
    return ioctl(loop, LOOP_SET_STATUS64, &info) == 0;
}

std::string keep_after_all(const std::string &path, const std::string &store)
{
    struct stat facts {};
    const unique_fd loop(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    // Its other user may have closed it just now; it is then gone.
    const bool is_there = loop.is_open() && stat(store.c_str(), &facts) == 0 && shows(loop.get(), facts);
    return is_there && set_autoclear(loop.get(), false) ? path + " is open in another program" : "";
}
} // namespace

std::optional<std::string> loop_over(const std::string &store)
{
    const std::string wanted = file_name(resolved(store));
    for (const std::string &name : list_folder("/sys/block").value_or(std::vector<std::string>{})) {
        const auto backing = read_attribute("/sys/block/" + name + "/loop/backing_file");
        // Only those that may be it are opened: others may belong to somebody who wants them closed.
        if (!backing || file_name(*backing) != wanted)
            continue;
        make_node(name);
        if (is_over("/dev/" + name, store))
            return "/dev/" + name;
    }
    return std::nullopt;
}

std::optional<std::string> attach_loop(const std::string &store, uint64_t size, uint64_t block,
                                       std::string *why)
{
    const unique_fd file(open(store.c_str(), O_RDWR | O_CLOEXEC));
    const unique_fd control(open("/dev/loop-control", O_RDWR | O_CLOEXEC));
    const loop_config config = configuration(file.get(), size, block);
    std::string path;
    for (int attempt = 1; file.is_open() && control.is_open(); attempt++) {
        if (configure_next(control.get(), config, &path))
            return path;
        if ((errno != EBUSY && errno != ENOENT && errno != ENXIO) || attempt == attach_attempts)
            break;
        usleep(pause_us);
    }
    *why = std::string("no loop device can be made over it: ") + strerror(errno);
    return std::nullopt;
}

std::string detach_loop(const std::string &path, const std::string &store)
{
    unique_fd loop(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_EXCL));
    for (int attempt = 1; !loop.is_open() && errno == EBUSY && attempt < detach_attempts; attempt++) {
        usleep(pause_us);
        loop.reset(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_EXCL));
    }
    if (!loop.is_open())
        return path + (errno == EBUSY ? " is mounted or in use" : std::string(": ") + strerror(errno));
    struct stat facts {};
    if (stat(store.c_str(), &facts) != 0 || !shows(loop.get(), facts))
        return is_over(path, store) ? path + ": " + strerror(errno) : ""; // it has gone meanwhile
    if (!set_autoclear(loop.get(), true))
        return path + ": " + strerror(errno);
    loop.reset();
    for (int attempt = 1; is_over(path, store); attempt++) {
        if (attempt == detach_attempts)
            return keep_after_all(path, store);
        usleep(pause_us);
    }
    return "";
}
