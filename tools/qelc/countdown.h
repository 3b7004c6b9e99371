// What the daemon waits for, and how much longer, for the person who waits with it. On standard error: a line
// that counts on a terminal, elsewhere one line.
#pragma once

#include <chrono>
#include <string>

class countdown {
public:
    // The daemon does WHAT for up to so many SECONDS from now. Nothing is shown if these are none.
    countdown(std::string what, unsigned seconds);
    ~countdown();
    countdown(const countdown &) = delete;
    countdown &operator=(const countdown &) = delete;

    // To be called each second.
    void show();

private:
    std::string what_;
    std::chrono::steady_clock::time_point end_;
    bool is_drawn_;
};
