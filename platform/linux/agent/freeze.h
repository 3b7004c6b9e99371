// Freezes file systems for a moment, through a guardian process that thaws them whatever becomes of this one.
#pragma once

#include "platform/linux/agent/frozen_mounts.h"

#include <chrono>
#include <memory>

struct guard_answer;
enum class guard_order : uint8_t;

// Where the guardian is: beside this library.
std::string guard_program();

class freeze_guard {
public:
    // Starts PROGRAM and gets it ready. DEADLINE: the longest time that anything stays frozen. Null with the
    // reason in WHY.
    static std::unique_ptr<freeze_guard> start(const std::string &program,
                                               std::vector<mounted_file_system> systems,
                                               std::chrono::milliseconds deadline, std::string *why);
    // Thaws what is frozen.
    ~freeze_guard();
    freeze_guard(const freeze_guard &) = delete;
    freeze_guard &operator=(const freeze_guard &) = delete;

    // Writes out what the file systems hold in memory. False with the reason in WHY, as below.
    bool sync(std::chrono::milliseconds limit, std::string *why);

    // Freezes all of them or none. From here until thaw() returns, this process must not log, start programs,
    // or write anywhere but to mirrors: that may wait for a file system.
    bool freeze(std::string *why);

    // True if all of them were frozen from freeze() until now. Whatever it returns, they are thawed; if the
    // kernel refuses that, the log says so, and the guardian goes on trying.
    bool thaw(std::string *why);

    std::chrono::milliseconds time_frozen() const { return time_frozen_; }

private:
    freeze_guard(std::vector<mounted_file_system> systems, std::chrono::milliseconds deadline);
    bool start_process(const std::string &program, std::string *why);
    bool hand_over_files() const;
    std::optional<guard_answer> answer_in(std::chrono::milliseconds limit) const;
    std::optional<guard_answer> ask(guard_order order, std::chrono::milliseconds limit) const;
    std::string complaint(const char *what, const std::optional<guard_answer> &answer) const;
    void thaw_without_guard() const;

    std::vector<mounted_file_system> systems_;
    std::chrono::milliseconds deadline_;
    std::chrono::milliseconds time_frozen_{0};
    unique_fd socket_;
    pid_t guard_ = -1;
};
