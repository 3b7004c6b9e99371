// Looks at one host again and again.
#pragma once

#include "tools/qelc/health/host_health.h"

#include <set>
#include <string>
#include <utility>

// Used by one thread.
class host_watch {
public:
    explicit host_watch(const peer_options &peer) : peer_(peer), is_local_(peer.host.empty()) {}

    // Asks the daemon. Takes a second or more, as the daemon looks at its disks. A working process that is
    // being replaced is waited for, some seconds.
    host_health look();

    // For who looks each second: the daemon, which logs every question, is asked only if the host shows that
    // more has changed than the progress of its mirrors, or cannot show it.
    host_health glance();

private:
    // What changes with the daemon, its configuration and the list of mirrors.
    struct landmarks {
        pid_t worker = 0;
        int64_t config = 0; // when it was written
        std::set<std::pair<std::string, std::string>> mirrors;

        bool operator==(const landmarks &) const = default;
    };

    void ask(host_health &seen) const;
    void take_answers(host_health &seen) const;
    void look_here(host_health &seen);
    void look_for_heartbeat(host_health &seen);
    void look_at_snapshots(host_health &seen);
    landmarks landmarks_now() const;

    peer_options peer_;
    bool is_local_;
    mark_journal journal_;
    marks_by_key marks_;
    bool has_looked_ = false;
    host_health last_;
    landmarks landmarks_;
    int64_t asked_ = 0; // in seconds of clock_monotonic, as the next one
    int64_t asked_manager_ = 0;
};
