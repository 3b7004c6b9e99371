#include "tests/fuzz/fuzz.h"

#include "base/fd.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace {
std::string content_of(int fd)
{
    struct stat facts {};
    require(fstat(fd, &facts) == 0, "a file has a size");
    std::string bytes(static_cast<size_t>(facts.st_size), '\0');
    require(pread(fd, bytes.data(), bytes.size(), 0) == facts.st_size, "a file can be read");
    return bytes;
}
} // namespace

void require(bool holds, const char *what)
{
    if (holds)
        return;
    fprintf(stderr, "does not hold: %s\n", what);
    abort();
}

fuzz_input::fuzz_input(const uint8_t *data, size_t size, size_t choices)
{
    if (size == 0)
        return;
    choice = (data[0] + choices - 'a' % choices) % choices;
    bytes.assign(reinterpret_cast<const char *>(data) + 1, size - 1);
}

memory_file::memory_file()
    : fd_(memfd_create("fuzz", MFD_CLOEXEC)), path_("/proc/self/fd/" + std::to_string(fd_))
{
    require(fd_ >= 0, "a memory file can be made");
}

memory_file::~memory_file()
{
    close(fd_);
}

void memory_file::set(const std::string &bytes) const
{
    require(ftruncate(fd_, 0) == 0 &&
                pwrite(fd_, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size()),
            "a memory file can be written");
}

std::string memory_file::content() const
{
    return content_of(fd_);
}

void require_private_host()
{
    require(access("/run/private-host", F_OK) == 0, "this target runs in scripts/private-host");
}

void put_file(const std::string &path, const std::string &bytes)
{
    const unique_fd file(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    require(file.is_open() &&
                write(file.get(), bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()),
            path.c_str());
}

std::string file_content_of(const std::string &path)
{
    const unique_fd file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    return file.is_open() ? content_of(file.get()) : "";
}
