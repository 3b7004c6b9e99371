// The state of a host at one look, for people and for monitoring.
#include "tools/qelc/views/status.h"

#include "tools/qelc/health/host_watch.h"
#include "tools/qelc/health/judge.h"
#include "tools/qelc/verbs/families.h"

#include <cstdio>
#include <nlohmann/json.hpp>

namespace {
int show_status(const peer_options &peer, const verb_options &given, bool as_json)
{
    const host_health seen = host_watch(peer).look();
    const verdict found = judge(seen, given.limits);
    if (as_json) {
        const json_object results = json_object::array({status_object(seen, found, given.limits)});
        print_envelope("status", exit_ok, "", found.hint, results);
    } else {
        fputs(status_page(seen, found, given.limits).c_str(), stdout);
    }
    return static_cast<int>(found.how);
}

constexpr verb table[] = {
    {.name = "status",
     .usage = "[--behind WARNING[,CRITICAL]] [--snapshot-age WARNING[,CRITICAL]]\n"
              "            [--heartbeat WARNING[,CRITICAL]]",
     .description = "show the state of the host at one look",
     .note = "The first line and the exit status are those of a monitoring plugin: 0 OK, 1 WARNING,\n"
             "2 CRITICAL, 3 UNKNOWN. Unless --timeout is given, the daemon has 10 seconds.\n",
     .add_options = add_health_limits,
     .look = show_status},
};
} // namespace

std::span<const verb> status_verbs()
{
    return table;
}
