// The state of a host at one look: what its daemon answers, and what lies on the host itself.
#pragma once

#include "tools/qelc/config_check.h"
#include "tools/qelc/health/daemon_process.h"
#include "tools/qelc/health/heartbeat.h"
#include "tools/qelc/health/mark_journal.h"
#include "tools/qelc/health/mirror_health.h"
#include "tools/qelc/health/snapshot_series.h"
#include "tools/qelc/manager_view.h"
#include "tools/qelc/outcome.h"

#include <ctime>
#include <optional>
#include <set>
#include <string>
#include <vector>

// Null is what nobody can tell. Of another host that is all but what its daemon answers.
struct host_health {
    time_t time = 0;
    std::string name; // of the host
    bool is_local = false;
    std::optional<config_remarks> config;
    std::optional<daemon_process> process; // null also if it does not run

    // What the daemon answered. FAILURE is why there is no report, or that nobody has adopted the host.
    std::optional<verb_end> failure;
    bool answers = false;
    bool is_barred = false; // this user may not ask, so nobody knows whether it would answer
    std::optional<bool> is_adopted;
    std::optional<manager_view> manager;
    std::optional<std::vector<mirror_health>> mirrors;
    std::vector<std::string> databases; // instances

    std::optional<heartbeat_view> heartbeat;
    time_t beats_since = 0; // heartbeats are sent since then, or for longer; 0: not known

    std::optional<size_t> recorded_mirrors; // that are to be, whether the daemon runs or not
    std::optional<std::vector<snapshot_series>> snapshots;
    std::set<std::string> kept;      // names of snapshots
    std::vector<journal_mark> marks; // since the last look; at the first one, the last few
};
