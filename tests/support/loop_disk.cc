#include "tests/support/loop_disk.h"

#include "tests/support/eventually.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/blkpg.h>
#include <linux/loop.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace {
constexpr char control_path[] = "/dev/loop-control";
constexpr unsigned loop_major = 7;

// Another test may take the free device first; then errno is EBUSY.
int attach_once(int control, int backing, bool read_only, std::string &path)
{
    const int number = ioctl(control, LOOP_CTL_GET_FREE);
    if (number < 0)
        return -1;
    path = "/dev/loop" + std::to_string(number);
    mknod(path.c_str(), S_IFBLK | 0600, makedev(loop_major, static_cast<unsigned>(number)));
    const int fd = open(path.c_str(), (read_only ? O_RDONLY : O_RDWR) | O_CLOEXEC);
    loop_config config{};
    config.fd = static_cast<__u32>(backing);
    config.info.lo_flags = LO_FLAGS_AUTOCLEAR | (read_only ? LO_FLAGS_READ_ONLY : 0);
    if (fd >= 0 && ioctl(fd, LOOP_CONFIGURE, &config) != 0) {
        const int error = errno;
        close(fd);
        errno = error;
        return -1;
    }
    return fd;
}

// Partitions outlive the disk that they were added to, and would be seen on the next one.
void drop_partitions(int fd)
{
    for (int number = 1; number <= 16; number++) {
        blkpg_partition partition{};
        partition.pno = number;
        blkpg_ioctl_arg argument = {BLKPG_DEL_PARTITION, 0, sizeof partition, &partition};
        ioctl(fd, BLKPG, &argument);
    }
}
} // namespace

std::string loop_disk::unavailable()
{
    const int control = open(control_path, O_RDWR | O_CLOEXEC);
    if (control < 0)
        return std::string("no loop devices here: ") + control_path + ": " + strerror(errno);
    close(control);
    return "";
}

loop_disk::loop_disk(size_t bytes)
{
    const int backing = memfd_create("loop-disk", MFD_CLOEXEC);
    if (ftruncate(backing, static_cast<off_t>(bytes)) == 0)
        attach(backing, false);
}

loop_disk::loop_disk(const std::string &file, bool read_only)
{
    attach(open(file.c_str(), O_RDWR | O_CLOEXEC), read_only);
}

void loop_disk::attach(int backing, bool read_only)
{
    const int control = open(control_path, O_RDWR | O_CLOEXEC);
    eventually([&] {
        fd_ = attach_once(control, backing, read_only, path_);
        return fd_ >= 0 || errno != EBUSY;
    });
    if (fd_ < 0)
        ADD_FAILURE() << "no loop device: " << path_ << ": " << strerror(errno);
    drop_partitions(fd_);
    close(backing);
    close(control);
}

loop_disk::~loop_disk()
{
    drop_partitions(fd_);
    close(fd_);
}

std::string loop_disk::read(size_t offset, size_t count) const
{
    std::string bytes(count, '\0');
    posix_fadvise(fd_, 0, 0, POSIX_FADV_DONTNEED);
    if (pread(fd_, bytes.data(), count, static_cast<off_t>(offset)) != static_cast<ssize_t>(count))
        ADD_FAILURE() << "cannot read " << path_ << ": " << strerror(errno);
    return bytes;
}

void loop_disk::write(size_t offset, const std::string &bytes) const
{
    const auto size = static_cast<ssize_t>(bytes.size());
    if (pwrite(fd_, bytes.data(), bytes.size(), static_cast<off_t>(offset)) != size || fsync(fd_) != 0)
        ADD_FAILURE() << "cannot write " << path_ << ": " << strerror(errno);
}
