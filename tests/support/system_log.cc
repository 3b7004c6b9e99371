#include "tests/support/system_log.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace {
constexpr char log_path[] = "/dev/log";
constexpr size_t longest_line = 64 * 1024;

int bind_log_socket()
{
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
    memcpy(address.sun_path, log_path, sizeof log_path);
    unlink(log_path);
    if (fd < 0 || bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0)
        ADD_FAILURE() << "cannot read the system log: " << strerror(errno);
    return fd;
}

// "<PRIORITY>Mmm dd hh:mm:ss NAME: TEXT\n", see syslog(3) and RFC 3164.
log_line parse(const std::string &datagram)
{
    const size_t head_end = datagram.find('>');
    const size_t text_start = datagram.find(": ", head_end + sizeof "Mmm dd hh:mm:ss");
    if (datagram[0] != '<' || text_start == std::string::npos || datagram.back() != '\n')
        return {LOG_ERR, "a datagram that is no log line: " + datagram};
    const int priority = atoi(datagram.c_str() + 1);
    if ((priority & LOG_FACMASK) != LOG_USER)
        return {LOG_ERR, "a line of another facility: " + datagram};
    return {LOG_PRI(priority), datagram.substr(text_start + 2, datagram.size() - text_start - 3)};
}

bool fits(std::string_view text, std::string_view pattern)
{
    const size_t star = pattern.find('*');
    if (star == std::string_view::npos || !text.starts_with(pattern.substr(0, star)))
        return text == pattern;
    for (size_t end = star; end <= text.size(); ++end) {
        if (fits(text.substr(end), pattern.substr(star + 1)))
            return true;
    }
    return false;
}
} // namespace

system_log::system_log() : fd_(bind_log_socket()), reader_([this] { read_lines(); }) {}

system_log::~system_log()
{
    // Ends the reader once it has read all that has been sent.
    shutdown(fd_, SHUT_RD);
    reader_.join();
    close(fd_);
    for (size_t at = 0; at < lines_.size(); at++) {
        const auto &[level, text] = lines_[at];
        const auto fits_text = [&](const std::string &pattern) { return fits(text, pattern); };
        if (level <= LOG_ERR && !expected_[at] &&
            std::none_of(tolerated_.begin(), tolerated_.end(), fits_text))
            ADD_FAILURE() << "unexpected error in the log: " << text;
    }
    if (testing::Test::HasFailure()) {
        for (const log_line &line : lines())
            fprintf(stderr, "log <%d> %s\n", line.level, line.text.c_str());
    }
}

void system_log::read_lines()
{
    pollfd log = {.fd = fd_, .events = POLLIN | POLLRDHUP, .revents = 0};
    while ((log.revents & POLLRDHUP) == 0) {
        poll(&log, 1, -1);
        const std::lock_guard guard(lock_);
        take_what_was_sent();
    }
}

void system_log::take_what_was_sent() const
{
    std::string datagram(longest_line, '\0');
    for (;;) {
        const ssize_t count = recv(fd_, datagram.data(), datagram.size(), MSG_DONTWAIT);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return;
        lines_.push_back(parse(datagram.substr(0, static_cast<size_t>(count))));
        expected_.push_back(false);
    }
}

size_t system_log::expect(int level, const std::string &pattern, size_t from)
{
    size_t at = from;
    const bool found = eventually([&] {
        const std::lock_guard guard(lock_);
        for (; at < lines_.size(); at++) {
            if (lines_[at].level == level && fits(lines_[at].text, pattern)) {
                expected_[at] = true;
                return true;
            }
        }
        return false;
    });
    EXPECT_TRUE(found) << "no such line in the log, at level " << level << ": " << pattern;
    return found ? at + 1 : from;
}

size_t system_log::expect_steps(int level, const std::vector<std::string> &patterns, size_t from)
{
    for (const std::string &pattern : patterns)
        from = expect(level, pattern, from);
    return from;
}

std::vector<log_line> system_log::lines() const
{
    const std::lock_guard guard(lock_);
    take_what_was_sent();
    return lines_;
}
