// The system log of the private host: reads what processes send to /dev/log.
//
// A pattern is the text of a line, in which a star stands for any text.
#pragma once

#include "tests/support/eventually.h"

#include <syslog.h>

#include <mutex>
#include <string>
#include <thread>
#include <vector>

struct log_line {
    int level = LOG_DEBUG; // LOG_ERR to LOG_DEBUG
    std::string text;      // without its newline
};

class system_log {
public:
    system_log();
    // Fails the test for every line at error level, or worse, that it did not expect.
    ~system_log();
    system_log(const system_log &) = delete;
    system_log &operator=(const system_log &) = delete;

    // Waits for a line at that level, at or after position FROM; fails the test when it does not come.
    // Returns the position after the line.
    size_t expect(int level, const std::string &pattern, size_t from = 0);
    // The same for several lines in this order, whatever stands between.
    size_t expect_steps(int level, const std::vector<std::string> &patterns, size_t from = 0);

    // Lines at error level that fit may come, in any number.
    void tolerate(const std::string &pattern) { tolerated_.push_back(pattern); }

    // All lines that have been sent, and how many: a process that has ended sends no more.
    std::vector<log_line> lines() const;
    size_t size() const { return lines().size(); }

private:
    void read_lines();
    // With lock_ held.
    void take_what_was_sent() const;

    int fd_;
    mutable std::mutex lock_;
    mutable std::vector<log_line> lines_; // guarded by lock_
    mutable std::vector<bool> expected_;  // as long as lines_, guarded by lock_
    std::vector<std::string> tolerated_;
    std::thread reader_;
};
