// A restore, for the person who waits for it. Everything goes to standard error.
#pragma once

#include "tools/snapshots/restore.h"

#include <chrono>
#include <cstdint>
#include <string>

// What would be overwritten with what.
std::string overwritten_page(const snapshot &of, const std::vector<restore_target> &targets);

// A bar on a terminal; elsewhere a line every half minute.
class restore_progress {
public:
    void show(const restore_target &target, uint64_t position);

    // What is printed next begins on a line of its own.
    void end_line();

private:
    std::string disk_;
    std::chrono::steady_clock::time_point begin_, shown_;
    bool is_in_line_ = false;
};
