#include "platform/linux/disk_node.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

int open_node(const disk_facts &disk)
{
    // Without O_NONBLOCK the open of a drive without a medium may wait for one.
    const int fd = open(disk.path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    struct stat node {};
    if (fd >= 0 && (fstat(fd, &node) != 0 || !S_ISBLK(node.st_mode) || node.st_rdev != disk.device)) {
        close(fd);
        return -1;
    }
    return fd;
}
