#include "kavdev.h"

#include "platform/linux/sysfs.h"
#include "platform/linux/weak_log.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

namespace {

// Starts TOOL with what it needs to be independent of this process: no input, no output, no blocked signal.
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

// The arguments are udevadm(8)'s. 0, or -1 with a log line.
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

int probe_through_udev()
{
    if (run_udevadm("trigger", {"--subsystem-match=block", "--action=change"}) != 0)
        return -1;
    return run_udevadm("settle", {"--timeout=10"});
}

// Writes TEXT to ATTRIBUTE of every device in FOLDER that has it. 0, or -1 with a log line.
int write_to_all(const std::string &folder, const std::string &attribute, const std::string &text)
{
    const auto names = list_folder(folder);
    if (!names) {
        log_error("Cannot list %s: %s", folder.c_str(), strerror(errno));
        return -1;
    }
    int result = 0;
    for (const std::string &name : *names) {
        const std::string path = folder + "/" + name + "/" + attribute;
        if (!write_attribute(path, text) && errno != ENOENT) {
            log_error("Cannot write \"%s\" to %s: %s", text.c_str(), path.c_str(), strerror(errno));
            result = -1;
        }
    }
    return result;
}

// One device that refuses does not keep the others from being probed.
int probe_through_sysfs()
{
    const int rescanned = write_to_all("/sys/block", "device/rescan", "1");
    const int announced = write_to_all("/sys/class/block", "uevent", "change");
    return rescanned == 0 && announced == 0 ? 0 : -1;
}

} // namespace

extern "C" __attribute__((visibility("default"))) int kav_device_probe_all(int /*flag*/)
{
    const bool udev_runs = access("/run/udev/control", F_OK) == 0;
    return udev_runs ? probe_through_udev() : probe_through_sysfs();
}
