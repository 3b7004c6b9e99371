// What stands around the daemon while memory runs out: the system log, and a manager that takes heartbeats.
#pragma once

#include "base/fd.h"

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

// Reads what processes send to /dev/log, and keeps the lines at error level.
class error_log {
public:
    error_log();
    ~error_log();
    error_log(const error_log &) = delete;
    error_log &operator=(const error_log &) = delete;

    // The lines since the last call.
    std::vector<std::string> take();
    bool has(const std::string &text);

private:
    void read_lines();
    void take_what_was_sent(); // with lock_ held

    unique_fd socket_;
    std::atomic<bool> ends_{false};
    std::mutex lock_;
    std::vector<std::string> lines_; // guarded by lock_
    std::thread reader_;
};

// Answers each heartbeat on the port 9411 with the record of a manager at 127.0.0.1.
class answering_manager {
public:
    answering_manager();
    ~answering_manager();
    answering_manager(const answering_manager &) = delete;
    answering_manager &operator=(const answering_manager &) = delete;

    // The manager that has adopted the host, or, from the start, another one: its record changes nothing.
    void answer_as_adopter(bool on) { is_adopter_ = on; }

private:
    void serve();

    unique_fd listener_;
    std::atomic<bool> is_adopter_{false};
    std::thread server_;
};
