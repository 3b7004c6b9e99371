#include "tests/fuzz/fuzz.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>

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
    return file_content_of(path_);
}

void require_private_host()
{
    require(access("/run/private-host", F_OK) == 0, "this target runs in scripts/private-host");
}

void put_file(const std::string &path, const std::string &bytes)
{
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << bytes;
    file.close();
    require(file.good(), path.c_str());
}

std::string file_content_of(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}
