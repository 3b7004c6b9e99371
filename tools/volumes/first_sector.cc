#include "tools/volumes/first_sector.h"

#include "base/fd.h"
#include "platform/linux/devices/disk_signature.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

namespace {
constexpr size_t sector = 512;

bool write_whole(int fd, const char *bytes, size_t count, uint64_t offset)
{
    errno = EIO; // for a write that is cut short
    return pwrite(fd, bytes, count, static_cast<off_t>(offset)) == static_cast<ssize_t>(count);
}
} // namespace

bool write_first_sector(int fd, const std::string &guid)
{
    char bytes[sector] = {};
    const disk_signature signature = signature_of_guid(guid);
    std::copy(signature.begin(), signature.end(), bytes + signature_offset);
    // With the mark of an MBR nobody takes the volume for a blank disk that may be filled.
    bytes[sector - 2] = '\x55';
    bytes[sector - 1] = '\xaa';
    return write_whole(fd, bytes, sector, 0);
}

std::string guid_in(const std::string &path)
{
    char bytes[sector];
    const unique_fd file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!file.is_open() || pread(file.get(), bytes, sector, 0) != static_cast<ssize_t>(sector))
        return "";
    return guid_of_signature(signature_in(bytes)).value_or("");
}

bool clear_ends(int fd, uint64_t size)
{
    constexpr uint64_t length = 1 << 20;
    const std::vector<char> zeros(std::min(size, length));
    return write_whole(fd, zeros.data(), zeros.size(), 0) &&
           write_whole(fd, zeros.data(), zeros.size(), size - zeros.size());
}
