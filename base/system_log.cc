#include "base/system_log.h"

#include <fcntl.h>
#include <paths.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>

namespace {
constexpr int64_t patience = 1000; // milliseconds
constexpr size_t most_parts = 6;
constexpr size_t longest_heading = 128;

std::atomic<const char *> identity{nullptr};
std::atomic<bool> is_connected{false};
std::atomic<int64_t> waiting_since{0}; // milliseconds; 0: the log takes lines
std::atomic<uint64_t> dropped{0};

int64_t now_in_milliseconds()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
}

// Opened once and never closed, so that no other file can get its number while a thread is about to send. It
// stays clear of the standard streams, which become /dev/null later.
int log_socket()
{
    static const int fd = [] {
        const int opened = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        if (opened < 0 || opened > STDERR_FILENO)
            return opened;
        const int moved = fcntl(opened, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
        close(opened);
        return moved;
    }();
    return fd;
}

bool connect_to_log()
{
    sockaddr_un address{.sun_family = AF_UNIX, .sun_path = _PATH_LOG};
    is_connected = connect(log_socket(), reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
    return is_connected;
}

bool is_full(int cause)
{
    return cause == EAGAIN || cause == ENOBUFS;
}

// Sends without waiting. Returns 0 or an errno value. A log that has been started anew is connected to again.
int try_to_send(const msghdr &message)
{
    for (int attempt = 0; attempt < 2; ++attempt) {
        if (!is_connected && !connect_to_log())
            return errno;
        if (sendmsg(log_socket(), &message, MSG_DONTWAIT | MSG_NOSIGNAL) >= 0)
            return 0;
        if (is_full(errno))
            return errno;
        is_connected = false;
    }
    return errno;
}

// Waits until the log takes lines, at most for what is left of its second. False when that is over.
bool wait_for_log()
{
    int64_t began = 0;
    const int64_t now = now_in_milliseconds();
    if (waiting_since.compare_exchange_strong(began, now))
        began = now;
    const int64_t left = began + patience - now_in_milliseconds();
    if (left <= 0)
        return false;
    pollfd log = {.fd = log_socket(), .events = POLLOUT, .revents = 0};
    return poll(&log, 1, static_cast<int>(left)) > 0;
}

bool send_or_wait(const msghdr &message)
{
    for (;;) {
        const int cause = try_to_send(message);
        if (cause == 0) {
            waiting_since = 0;
            return true;
        }
        if (!is_full(cause))
            return true; // there is no log
        if (!wait_for_log())
            return false;
    }
}

size_t write_heading(char *text, size_t size, int level)
{
    const time_t now = time(nullptr);
    tm local{};
    localtime_r(&now, &local);
    char date[16] = "";
    strftime(date, sizeof date, "%b %e %H:%M:%S", &local);
    const char *name = identity;
    const int length = snprintf(text, size, "<%d>%s %s: ", LOG_USER | level, date,
                                name ? name : program_invocation_short_name);
    return std::min(static_cast<size_t>(std::max(length, 0)), size - 1);
}

bool send_parts(std::span<iovec> parts)
{
    msghdr message{};
    message.msg_iov = parts.data();
    message.msg_iovlen = parts.size();
    return send_or_wait(message);
}

// Most lines fit into one part, which costs the kernel less than several.
bool send_line(int level, std::span<const iovec> parts)
{
    char line[320];
    size_t length = write_heading(line, longest_heading, level);
    size_t whole = length;
    for (const iovec &part : parts)
        whole += part.iov_len;
    std::array<iovec, most_parts> all{};
    if (whole > sizeof line) {
        all[0] = {line, length};
        const auto last = std::copy_n(parts.begin(), std::min(parts.size(), most_parts - 1), all.begin() + 1);
        return send_parts({all.begin(), last});
    }
    for (const iovec &part : parts) {
        memcpy(line + length, part.iov_base, part.iov_len);
        length += part.iov_len;
    }
    all[0] = {line, length};
    return send_parts({all.begin(), 1});
}

// What was dropped is told before the next line that can be sent.
bool report_dropped()
{
    const uint64_t count = dropped.exchange(0);
    if (count == 0)
        return true;
    char text[128];
    const int length = snprintf(text, sizeof text, "The system log did not read: %llu lines were dropped.\n",
                                static_cast<unsigned long long>(count));
    const iovec part = {text, static_cast<size_t>(length)};
    if (send_line(LOG_WARNING, {&part, 1}))
        return true;
    dropped += count;
    return false;
}
} // namespace

void system_log_open(const char *ident)
{
    identity = ident;
    connect_to_log();
}

void system_log_close()
{
    is_connected = false;
}

void system_log_send(int level, std::span<const iovec> parts)
{
    if (!report_dropped() || !send_line(level, parts))
        ++dropped;
}
