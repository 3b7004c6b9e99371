// What changes on the host, as it happens.
#include "base/clock.h"
#include "tools/qelc/health/changes.h"
#include "tools/qelc/health/host_watch.h"
#include "tools/qelc/verbs/families.h"
#include "tools/qelc/views/change_line.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {
// Programs wait for each line, so none stays behind in a buffer.
bool print(const std::string &lines)
{
    return fputs(lines.c_str(), stdout) >= 0 && fflush(stdout) == 0;
}

// Runs until it is interrupted, or nobody reads any more.
int print_changes(const peer_options &peer, const verb_options & /*given*/, bool /*as_json*/)
{
    constexpr unsigned pause_ms = 1000;
    host_watch watch(peer);
    host_health before = watch.look();
    bool is_read = print(begin_line(before));
    while (is_read) {
        clock_sleep_ms(pause_ms);
        host_health after = watch.glance();
        carry_over(before, after);
        std::string lines;
        for (const host_change &change : changes_between(before, after))
            lines += change_line(change);
        is_read = print(lines);
        before = std::move(after);
    }
    return errno == EPIPE ? exit_ok : fail(exit_refused, "standard output", strerror(errno));
}

constexpr verb table[] = {
    {.name = "events",
     .description = "print a line of JSON for each change, until it is interrupted",
     .note = "Changes of the daemon, the adoption, mirrors and snapshots. The first line says what they\n"
             "begin from. It goes on while the daemon is away.\n",
     .look = print_changes},
};
} // namespace

std::span<const verb> events_verbs()
{
    return table;
}
