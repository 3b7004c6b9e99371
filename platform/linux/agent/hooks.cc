#include "platform/linux/agent/hooks.h"

#include "platform/linux/agent/limited_run.h"
#include "platform/linux/host/sysfs.h"
#include "platform/linux/state/text.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace {

constexpr std::chrono::seconds time_limit{60};

bool is_hook(const std::string &name)
{
    const std::string path = hook_folder + "/" + name;
    struct stat facts {};
    return name.front() != '.' && name.back() != '~' && stat(path.c_str(), &facts) == 0 &&
           S_ISREG(facts.st_mode) && access(path.c_str(), X_OK) == 0;
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
                      "QELCD_DEVICE=" + of.path, "QELCD_GUID=" + of.guid}};
    const run_result result = run_limited(hook, {.time = time_limit});
    const std::string complaint = !result.complaint.empty() ? result.complaint
                                  : result.exit_status == 0
                                      ? ""
                                      : "exit status " + std::to_string(result.exit_status);
    if (complaint.empty())
        return true;
    *why = "hook " + escaped(name) + " on " + escaped(of.guid) + ": " + complaint;
    return false;
}
