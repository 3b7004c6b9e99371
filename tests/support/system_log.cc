#include "tests/support/system_log.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <regex>
#include <set>

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
} // namespace

system_log::system_log() : fd_(bind_log_socket()), reader_([this] { read_lines(); }) {}

system_log::~system_log()
{
    // Ends the reader once it has read all that has been sent.
    shutdown(fd_, SHUT_RD);
    reader_.join();
    close(fd_);
    std::set<std::string> judged;
    for (size_t at = 0; at < lines_.size(); at++) {
        const auto &[level, text] = lines_[at];
        if (level <= LOG_ERR && !expected_[at] && judged.insert(text).second && !tolerates(text))
            ADD_FAILURE() << "unexpected error in the log: " << text;
    }
    if (testing::Test::HasFailure()) {
        for (const log_line &line : lines())
            fprintf(stderr, "log <%d> %s\n", line.level, line.text.c_str());
    }
}

void system_log::read_lines()
{
    std::string datagram(longest_line, '\0');
    for (;;) {
        const ssize_t count = recv(fd_, datagram.data(), datagram.size(), 0);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return;
        log_line line = parse(datagram.substr(0, static_cast<size_t>(count)));
        const std::lock_guard guard(lock_);
        lines_.push_back(std::move(line));
        expected_.push_back(false);
    }
}

size_t system_log::wait_for(int level, const std::string &what, size_t from,
                            const std::function<bool(const std::string &)> &matches)
{
    size_t at = from;
    const bool found = eventually([&] {
        const std::lock_guard guard(lock_);
        for (; at < lines_.size(); at++) {
            if (lines_[at].level == level && matches(lines_[at].text)) {
                expected_[at] = true;
                return true;
            }
        }
        return false;
    });
    if (!found)
        ADD_FAILURE() << "no such line in the log, at level " << level << ": " << what;
    return found ? at + 1 : from;
}

size_t system_log::expect(int level, const std::string &text, size_t from)
{
    return wait_for(level, text, from, [&](const std::string &line) { return line == text; });
}

size_t system_log::expect_match(int level, const std::string &pattern, size_t from)
{
    const std::regex expression(pattern);
    return wait_for(level, pattern, from,
                    [&](const std::string &line) { return std::regex_match(line, expression); });
}

size_t system_log::expect_sequence(int level, const std::vector<std::string> &patterns, size_t from)
{
    size_t at = expect_match(level, patterns.front(), from);
    for (size_t next = 1; next < patterns.size(); next++) {
        const size_t after = expect_match(level, patterns[next], at);
        const auto all = lines();
        for (size_t between = at; between + 1 < after; between++) {
            if (all[between].level == level)
                ADD_FAILURE() << "in the log before " << patterns[next] << ": " << all[between].text;
        }
        at = after;
    }
    return at;
}

void system_log::tolerate(const std::string &pattern)
{
    tolerated_.push_back(pattern);
}

bool system_log::tolerates(const std::string &text) const
{
    return std::any_of(tolerated_.begin(), tolerated_.end(), [&text](const std::string &pattern) {
        return std::regex_match(text, std::regex(pattern));
    });
}

std::vector<log_line> system_log::lines() const
{
    const std::lock_guard guard(lock_);
    return lines_;
}

size_t system_log::size() const
{
    const std::lock_guard guard(lock_);
    return lines_.size();
}
