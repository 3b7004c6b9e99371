#include "platform/linux/agent/hooks.h"

#include "base/tool.h"
#include "platform/linux/host/sysfs.h"
#include "platform/linux/state/text.h"

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <thread>

namespace {

constexpr std::chrono::seconds time_limit{60};
constexpr std::chrono::seconds death_limit{5}; // a process that waits for a device does not react to SIGKILL
constexpr std::chrono::milliseconds pause_between_looks{10};

bool is_hook(const std::string &name)
{
    const std::string path = hook_folder + "/" + name;
    struct stat facts {};
    return name.front() != '.' && name.back() != '~' && stat(path.c_str(), &facts) == 0 &&
           S_ISREG(facts.st_mode) && access(path.c_str(), X_OK) == 0;
}

// Returns the result of waitpid; 0 if LIMIT is exceeded.
pid_t wait_for_end(pid_t child, int *status, std::chrono::seconds limit)
{
    const auto end = std::chrono::steady_clock::now() + limit;
    for (;;) {
        const pid_t ended = waitpid(child, status, WNOHANG);
        if (ended > 0 || (ended < 0 && errno != EINTR) || std::chrono::steady_clock::now() > end)
            return ended;
        std::this_thread::sleep_for(pause_between_looks);
    }
}

std::string describe(int status)
{
    if (WIFSIGNALED(status))
        return "ended by signal " + std::to_string(WTERMSIG(status));
    return "exit status " + std::to_string(WEXITSTATUS(status));
}

// Empty if the hook succeeded.
std::string complaint_of(pid_t child)
{
    int status = 0;
    const pid_t ended = wait_for_end(child, &status, time_limit);
    if (ended < 0)
        return strerror(errno);
    if (ended > 0)
        return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? "" : describe(status);
    kill(-child, SIGKILL);
    const bool died = wait_for_end(child, &status, death_limit) > 0;
    return died ? "killed, as it took too long" : "it took too long and cannot be killed";
}

} // namespace

bool list_hooks(std::vector<std::string> *names, std::string *why)
{
    names->clear();
    auto found = list_folder(hook_folder);
    if (!found) {
        *why = "cannot list " + hook_folder + ": " + strerror(errno);
        return errno == ENOENT;
    }
    for (std::string &name : *found) {
        if (is_hook(name))
            names->push_back(std::move(name));
    }
    return true;
}

bool run_hook(const std::string &name, hook_action action, const marked_device &of, std::string *why)
{
    const tool_start hook = {
        .words = {hook_folder + "/" + name},
        .variables = {action == hook_action::mark ? "QELCD_MARK=mark" : "QELCD_MARK=undo",
                      "QELCD_DEVICE=" + of.path, "QELCD_GUID=" + of.guid},
        .leads_group = true}; // so that it can be killed with all that it started
    pid_t child = -1;
    const int error = start_tool(hook, &child);
    const std::string complaint = error ? strerror(error) : complaint_of(child);
    if (complaint.empty())
        return true;
    *why = "hook " + escaped(name) + " on " + escaped(of.guid) + ": " + complaint;
    return false;
}
