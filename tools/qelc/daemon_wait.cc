#include "tools/qelc/daemon_wait.h"

#include "base/clock.h"
#include "protocol/commands.h"
#include "tools/qelc/ask.h"
#include "tools/qelc/config_check.h"

bool does_daemon_answer()
{
    const peer_options local;
    std::string error;
    const unique_fd daemon = connect_local(local.socket_path, local.timeout, error);
    return daemon.is_open() && exchange(daemon, command::nop_command, local.origin, std::nullopt, error);
}

// A supervisor takes a moment until it has its PID file, and ends for good when its working process does. So
// one that has not come, or has gone, is missed only after some looks.
std::string wait_for_daemon(unsigned seconds)
{
    constexpr unsigned pause_ms = 100;
    constexpr unsigned most_misses = 30;
    const int64_t deadline = clock_monotonic() + seconds;
    for (unsigned misses = 0; !does_daemon_answer(); clock_sleep_ms(pause_ms)) {
        misses = is_daemon_running() ? 0 : misses + 1;
        if (misses == most_misses)
            return "qelcd does not run; its last lines in the system log say why";
        if (clock_monotonic() > deadline)
            return "time-out: no answer of qelcd within " + std::to_string(seconds) + " s";
    }
    return "";
}
