#include "kavdev.h"

#include "base/tool.h"
#include "platform/linux/devices/attributes.h"
#include "platform/linux/host/boundary.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <utility>
#include <vector>

namespace {

// The arguments are those of udevadm(8). Returns 0, or -1 after a log line.
int run_udevadm(const char *command, std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), {"udevadm", command});
    pid_t child = -1;
    if (const int error = start_tool({.words = std::move(arguments)}, &child)) {
        log_error("Cannot run udevadm %s: %s", command, strerror(error));
        return -1;
    }
    int status = 0;
    if (const int error = wait_for_tool(child, &status)) {
        log_error("Cannot wait for udevadm %s: %s", command, strerror(error));
        return -1;
    }
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        log_error("udevadm %s failed, wait status 0x%x", command, static_cast<unsigned>(status));
        return -1;
    }
    return 0;
}

bool announce_through_udev()
{
    return run_udevadm("trigger", {"--subsystem-match=block", "--action=change"}) == 0 &&
           run_udevadm("settle", {"--timeout=10"}) == 0;
}

int probe_all()
{
    const bool is_read = read_sizes_anew();
    const bool udev_runs = access("/run/udev/control", F_OK) == 0;
    const bool is_announced =
        udev_runs ? announce_through_udev() : write_to_all("/sys/class/block", "uevent", "change");
    return is_read && is_announced ? 0 : -1;
}

} // namespace

extern "C" __attribute__((visibility("default"))) int kav_device_probe_all(int /*flag*/)
{
    return result_of(__func__, -1, probe_all);
}
