// What a thread waits for that must also wait for a file descriptor. A call that nobody waits for is kept for
// the next wait.
#pragma once

#include "base/fd.h"

#include <chrono>
#include <mutex>

class wake_event {
public:
    // Without a free descriptor nobody can be woken: waits are short then.
    wake_event();

    void notify();

    // Until notify() is called, or OTHER is readable (-1: none). May return early. HELD is released
    // meanwhile. For one thread.
    void wait(std::unique_lock<std::mutex> &held, std::chrono::milliseconds limit, int other = -1);

private:
    unique_fd event_;
};
