// The system log of the private host: reads what processes send to /dev/log.
#pragma once

#include "tests/support/eventually.h"

#include <syslog.h>

#include <functional>
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
    // Returns the position after the line, so that a chain of calls expects an order.
    size_t expect(int level, const std::string &text, size_t from = 0);
    // The same for a text that matches the regular expression as a whole.
    size_t expect_match(int level, const std::string &pattern, size_t from = 0);
    // The same for lines of one level with nothing between them that is at that level.
    size_t expect_sequence(int level, const std::vector<std::string> &patterns, size_t from = 0);

    // Lines at error level that match may come, in any number.
    void tolerate(const std::string &pattern);
    bool tolerates(const std::string &text) const;

    // All lines so far, and how many.
    std::vector<log_line> lines() const;
    size_t size() const;

private:
    void read_lines();
    size_t wait_for(int level, const std::string &what, size_t from,
                    const std::function<bool(const std::string &)> &matches);

    int fd_;
    mutable std::mutex lock_;
    std::vector<log_line> lines_; // guarded by lock_
    std::vector<bool> expected_;  // as long as lines_, guarded by lock_
    std::vector<std::string> tolerated_;
    std::thread reader_;
};
