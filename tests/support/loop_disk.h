// A real block device, small, and empty unless it is over a file, that exists while the record lives. It is a
// loop device that the kernel takes apart by itself when the last user has gone, however the test ends.
#pragma once

#include <cstddef>
#include <string>

class loop_disk {
public:
    // Why there can be none here; "" when there can be.
    static std::string unavailable();

    explicit loop_disk(size_t bytes);
    explicit loop_disk(const std::string &file,
                       bool read_only = false); // over a file that can be changed below it
    ~loop_disk();
    loop_disk(const loop_disk &) = delete;
    loop_disk &operator=(const loop_disk &) = delete;

    const std::string &path() const { return path_; }
    std::string name() const { return path_.substr(sizeof "/dev/" - 1); }
    std::string read(size_t offset, size_t count) const;
    void write(size_t offset, const std::string &bytes) const;

private:
    void attach(int backing, bool read_only);

    std::string path_;
    int fd_ = -1;
};
