#include "tools/qelc/heartbeat_wait.h"

#include "base/clock.h"
#include "tools/qelc/countdown.h"
#include "tools/qelc/health/heartbeat.h"

namespace {
heartbeat_end look(const manager_view &manager, time_t from)
{
    const auto seen = find_heartbeat(manager);
    if (!seen)
        return heartbeat_end::not_told;
    return seen->is_taken && seen->last >= from ? heartbeat_end::came : heartbeat_end::missing;
}
} // namespace

// A service that has just been started listens before it can be asked.
heartbeat_end wait_for_heartbeat(const manager_view &manager, time_t from, unsigned seconds)
{
    constexpr unsigned pause_ms = 250;
    constexpr int64_t seconds_to_begin = 5;
    heartbeat_end end = look(manager, from);
    if (end == heartbeat_end::came)
        return end;
    const int64_t begin = clock_monotonic();
    countdown patience("a heartbeat is awaited", seconds);
    while (end != heartbeat_end::came && clock_monotonic() - begin < seconds) {
        if (end == heartbeat_end::not_told && clock_monotonic() - begin >= seconds_to_begin)
            break;
        clock_sleep_ms(pause_ms);
        patience.show();
        end = look(manager, from);
    }
    return end;
}
