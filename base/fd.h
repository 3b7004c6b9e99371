// A file descriptor that closes itself.
#pragma once

#include <unistd.h>

#include <cerrno>
#include <utility>

// Owns its descriptor; -1 means that it has none. Closing keeps errno, so that a failure can be reported
// after it.
class unique_fd {
public:
    unique_fd() = default;
    explicit unique_fd(int fd) : fd_(fd) {}
    ~unique_fd() { reset(); }
    unique_fd(unique_fd &&other) noexcept : fd_(other.release()) {}
    unique_fd &operator=(unique_fd &&other) noexcept
    {
        reset(other.release());
        return *this;
    }

    bool is_open() const { return fd_ >= 0; }
    int get() const { return fd_; }

    // Gives the descriptor to the caller, who closes it from now on.
    int release() { return std::exchange(fd_, -1); }

    // Closes the descriptor and owns FD instead.
    void reset(int fd = -1)
    {
        const int saved = errno;
        if (fd_ >= 0)
            close(fd_);
        errno = saved;
        fd_ = fd;
    }

private:
    int fd_ = -1;
};
