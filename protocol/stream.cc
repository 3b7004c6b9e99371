#include "protocol/stream.h"

#include "base/log.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>

namespace {
// Most requests are there already when they are read. Only a read that waits can wait for a peer that has
// vanished, and setting the timers costs as much as a small request.
ssize_t read_some(int fd, void *buf, size_t size)
{
    const ssize_t got = recv(fd, buf, size, MSG_DONTWAIT);
    if (got >= 0 || (errno != EAGAIN && errno != ENOTSOCK))
        return got;
    keep_alive(fd);
    return read(fd, buf, size);
}
} // namespace

int qelc_readn(int fd, void *buf, int count)
{
    log_debug("count:%d", count);
    int total = 0;
    while (total < count) {
        const int left = count - total;
        log_debug("total:%d left:%d", total, left);
        log_debug("Read from fd(%d)", fd);
        const ssize_t got = read_some(fd, static_cast<char *>(buf) + total, static_cast<size_t>(left));
        const int failure = errno;
        log_debug("Read from fd(%d) done", fd);
        if (got > 0) {
            total += static_cast<int>(got);
        } else if (got == 0) {
            log_error("Failed to receive msg, %d bytes left", left);
            return -1;
        } else if (failure == EAGAIN) {
            return total;
        } else if (failure != EINTR) {
            log_error("Failed to read (%s)", strerror(failure));
            return -1;
        }
    }
    return total;
}

int qelc_writen(int fd, const void *buf, int count)
{
    int total = 0;
    while (total < count) {
        const int left = count - total;
        log_debug("Send to fd(%d)", fd);
        const ssize_t put = write(fd, static_cast<const char *>(buf) + total, static_cast<size_t>(left));
        const int failure = errno;
        log_debug("Send to fd(%d) done", fd);
        if (put > 0) {
            total += static_cast<int>(put);
        } else if (put == 0) {
            log_error("Failed to send msg, %d bytes left", left);
            return -1;
        } else if (failure != EAGAIN && failure != EINTR) {
            log_error("Failed to write (%s)", strerror(failure));
            return -1;
        }
    }
    return total;
}

void keep_alive(int fd)
{
    const int on = 1;
    const int idle_seconds = 60;
    setsockopt(fd, SOL_SOCKET, SO_KEEPALIVE, &on, sizeof on);
    setsockopt(fd, IPPROTO_TCP, TCP_KEEPIDLE, &idle_seconds, sizeof idle_seconds);
}

unique_fd reused_sock()
{
    constexpr int attempts = 4;
    unique_fd fd;
    for (int i = 0; i < attempts && !fd.is_open(); ++i)
        fd.reset(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!fd.is_open()) {
        log_error("Failed to create socket (%s)", strerror(errno));
        return fd;
    }
    const int on = 1;
    if (setsockopt(fd.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0) {
        log_warning("Failed to set SO_REUSEADDR (%s)", strerror(errno));
        fd.reset();
    }
    return fd;
}
