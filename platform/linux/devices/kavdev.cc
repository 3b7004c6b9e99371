#include "kavdev.h"

#include "platform/linux/devices/attributes.h"
#include "platform/linux/host/weak_log.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <string>
#include <vector>

namespace {

// Starts TOOL independent of this process: no input, no output, no blocked signals.
int spawn_tool(pid_t *child, char *const tool[])
{
    posix_spawn_file_actions_t files;
    posix_spawnattr_t attributes;
    sigset_t none;
    sigemptyset(&none);
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
    const int result = posix_spawnp(child, tool[0], &files, &attributes, tool, environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&files);
    return result;
}

// The arguments are those of udevadm(8). Returns 0, or -1 after a log line.
int run_udevadm(const char *command, std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), {"udevadm", command});
    std::vector<char *> tool;
    for (std::string &argument : arguments)
        tool.push_back(argument.data());
    tool.push_back(nullptr);
    pid_t child = -1;
    if (const int error = spawn_tool(&child, tool.data())) {
        log_error("Cannot run udevadm %s: %s", command, strerror(error));
        return -1;
    }
    int status = 0;
    pid_t ended = -1;
    do
        ended = waitpid(child, &status, 0);
    while (ended < 0 && errno == EINTR);
    if (ended < 0) {
        log_error("Cannot wait for udevadm %s: %s", command, strerror(errno));
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

} // namespace

extern "C" __attribute__((visibility("default"))) int kav_device_probe_all(int /*flag*/)
{
    const bool is_read = read_sizes_anew();
    const bool udev_runs = access("/run/udev/control", F_OK) == 0;
    const bool is_announced =
        udev_runs ? announce_through_udev() : write_to_all("/sys/class/block", "uevent", "change");
    return is_read && is_announced ? 0 : -1;
}
