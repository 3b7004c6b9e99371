// Waiting by looking again, with a limit.
#pragma once

#include <chrono>
#include <thread>

using std::chrono_literals::operator""s;
using std::chrono_literals::operator""ms;

// Far more than anything takes that is not stuck.
constexpr std::chrono::milliseconds patience = 20s;

// True as soon as PREDICATE is; false when it is not within LIMIT.
template <class Predicate>
bool eventually(Predicate predicate, std::chrono::milliseconds limit = patience)
{
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!predicate()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::sleep_for(5ms);
    }
    return true;
}
