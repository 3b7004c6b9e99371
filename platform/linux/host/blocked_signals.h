// A new thread starts with the signal mask of the one that starts it.
#pragma once

#include <csignal>

// Blocks all signals for the calling thread while it lives: threads that start meanwhile receive none. The
// program's own threads may rely on receiving them.
class blocked_signals {
public:
    blocked_signals()
    {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &former_);
    }
    ~blocked_signals() { pthread_sigmask(SIG_SETMASK, &former_, nullptr); }
    blocked_signals(const blocked_signals &) = delete;
    blocked_signals &operator=(const blocked_signals &) = delete;

private:
    sigset_t former_{};
};
