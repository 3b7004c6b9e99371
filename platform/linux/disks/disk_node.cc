#include "platform/linux/disks/disk_node.h"

#include <fcntl.h>
#include <sys/stat.h>

unique_fd open_node(const disk_facts &disk)
{
    // Without O_NONBLOCK the open of a drive without a medium may wait for one.
    unique_fd fd(open(disk.path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat node {};
    if (fd.is_open() &&
        (fstat(fd.get(), &node) != 0 || !S_ISBLK(node.st_mode) || node.st_rdev != disk.device))
        fd.reset();
    return fd;
}
