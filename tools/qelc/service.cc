#include "tools/qelc/service.h"

#include "platform/linux/agent/limited_run.h"
#include "platform/linux/host/text.h"

#include <unistd.h>

#include <climits>

namespace {
constexpr run_limits patience{.time = std::chrono::seconds(120), .output = 4096};

std::string own_folder()
{
    char path[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", path, sizeof path);
    const std::string whole(path, length > 0 ? static_cast<size_t>(length) : 0);
    return whole.substr(0, whole.rfind('/'));
}

// Why it has failed; "" if it has not.
std::string complaint_of(const run_result &result)
{
    if (!result.complaint.empty())
        return result.complaint;
    if (result.exit_status == 0)
        return "";
    return result.first_error_line.empty() ? "it ended with status " + std::to_string(result.exit_status)
                                           : result.first_error_line;
}

// sd_booted(3).
bool does_systemd_run()
{
    return access("/run/systemd/system", F_OK) == 0;
}

bool is_unit_there(const service &one)
{
    return does_systemd_run() && complaint_of(run_limited({.words = {"systemctl", "cat", one.unit}},
                                                          {.time = std::chrono::seconds(20)}))
                                     .empty();
}

std::vector<std::string> words_of(const service &one)
{
    if (is_unit_there(one))
        return {"systemctl", "enable", "--now", one.unit};
    std::vector<std::string> words;
    if (!one.detaches)
        words = {"setsid", "--fork"};
    words.push_back(find_program(one.programs));
    words.insert(words.end(), one.arguments.begin(), one.arguments.end());
    return words;
}
} // namespace

std::string find_program(const std::vector<std::string> &names)
{
    const std::string own = own_folder();
    std::vector<std::string> folders = {own, own + "/../sbin"};
    for (const std::string_view folder : split(tool_path, ':'))
        folders.emplace_back(folder);
    for (const std::string &name : names) {
        for (const std::string &folder : folders) {
            const std::string path = folder + "/" + name;
            if (access(path.c_str(), X_OK) == 0)
                return path;
        }
    }
    return "";
}

std::string way_to_start(const service &one)
{
    return is_unit_there(one) ? std::string("systemctl enable --now ") + one.unit
                              : find_program(one.programs);
}

std::string start(const service &one)
{
    if (way_to_start(one).empty())
        return "it is not installed";
    run_limits limits = patience;
    limits.output = is_unit_there(one) ? patience.output : 0; // a program that goes on would hold a pipe open
    return complaint_of(run_limited({.words = words_of(one)}, limits));
}
