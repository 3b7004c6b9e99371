// A descriptor that closes itself.
#pragma once

#include <unistd.h>

#include <utility>

class state_fd {
public:
    state_fd() = default;
    explicit state_fd(int fd) : fd_(fd) {}
    ~state_fd()
    {
        if (fd_ >= 0)
            close(fd_);
    }
    state_fd(state_fd &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    state_fd &operator=(state_fd &&other) noexcept
    {
        std::swap(fd_, other.fd_);
        return *this;
    }

    bool is_open() const { return fd_ >= 0; }
    int get() const { return fd_; }

private:
    int fd_ = -1;
};
