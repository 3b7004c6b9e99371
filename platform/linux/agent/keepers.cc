#include "platform/linux/agent/keepers.h"

#include "platform/linux/agent/limited_run.h"
#include "platform/linux/host/sysfs.h"
#include "platform/linux/state/text.h"

#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>

namespace {

constexpr int status_not_mine = 3;

// In the order of keeper_verb.
constexpr struct {
    const char *word;
    run_limits limits;
} verbs[] = {
    {"probe", {std::chrono::seconds(10), 4096}},   {"mark", {std::chrono::seconds(60), 4096}},
    {"undo", {std::chrono::seconds(60), 4096}},    {"list", {std::chrono::seconds(30), size_t{1} << 20}},
    {"attach", {std::chrono::seconds(30), 4096}},  {"detach", {std::chrono::seconds(30), 4096}},
    {"remove", {std::chrono::seconds(120), 4096}}, {"space", {std::chrono::seconds(10), 4096}},
};

// Of the library or program that has this code.
std::string own_path()
{
    Dl_info object{};
    const bool is_known = dladdr(reinterpret_cast<const void *>(&list_keepers), &object) != 0;
    const std::string path = is_known && object.dli_fname ? object.dli_fname : "";
    if (path.find(".so", path.rfind('/') + 1) != std::string::npos)
        return path;
    char program[PATH_MAX]; // a program is known by the word that started it, which may be no path
    const ssize_t length = readlink("/proc/self/exe", program, sizeof program);
    return length > 0 ? std::string(program, static_cast<size_t>(length)) : "";
}

// Installed and in the build tree alike: the libraries are in lib/qelcd, the programs in bin beside lib.
std::string vendor_folder()
{
    const std::string path = own_path(), folder = path.substr(0, path.rfind('/'));
    const bool is_library = path.find(".so", folder.size()) != std::string::npos;
    return is_library ? folder + "/keepers.d" : folder + "/../lib/qelcd/keepers.d";
}

bool is_program(const std::string &path)
{
    struct stat facts {};
    return stat(path.c_str(), &facts) == 0 && S_ISREG(facts.st_mode) && access(path.c_str(), X_OK) == 0;
}

bool add_names(const std::string &folder, std::vector<std::string> *names, std::string *why)
{
    const auto found = list_folder(folder);
    if (!found && errno != ENOENT) {
        *why = "cannot list " + folder + ": " + strerror(errno);
        return false;
    }
    for (const std::string &name : found.value_or(std::vector<std::string>{})) {
        if (name.front() != '.' && name.back() != '~')
            names->push_back(name);
    }
    return true;
}

std::vector<std::string> variables_of(const snapshot &of, const snapshot_member &one)
{
    return {"QELCD_SNAPSHOT=" + of.name,  "QELCD_GROUP=" + of.group,  "QELCD_SOURCE=" + one.source,
            "QELCD_DEVICE=" + one.device, "QELCD_GUID=" + one.mirror, "QELCD_PLACE=" + one.place};
}

keeper_answer run_keeper(const keeper &who, keeper_verb verb, tool_start start)
{
    const auto &[word, limits] = verbs[static_cast<size_t>(verb)];
    start.words.insert(start.words.begin(), {who.path, word});
    run_result result = run_limited(std::move(start), limits);
    keeper_answer answer;
    answer.is_done = result.complaint.empty() && result.exit_status == 0;
    answer.is_not_mine = result.complaint.empty() && result.exit_status == status_not_mine;
    answer.output = std::move(result.output);
    if (answer.output.ends_with('\n'))
        answer.output.pop_back();
    if (answer.is_done)
        return answer;
    answer.why = "keeper " + escaped(who.name) + ", " + word + ": " + result.complaint;
    if (result.complaint.empty())
        answer.why += "exit status " + std::to_string(result.exit_status);
    if (!result.first_error_line.empty())
        answer.why += ": " + escaped(result.first_error_line, plain_in_values);
    return answer;
}

std::optional<keeper> find_keeper(const std::string &name, std::string *why)
{
    const auto all = list_keepers(why);
    if (!all)
        return std::nullopt;
    const auto found = std::ranges::find(*all, name, &keeper::name);
    if (found != all->end())
        return *found;
    *why = "there is no keeper " + escaped(name);
    return std::nullopt;
}

} // namespace

std::optional<std::vector<keeper>> list_keepers(std::string *why)
{
    const std::string vendor = vendor_folder();
    std::vector<std::string> site_names, names;
    if (!add_names(keeper_folder, &site_names, why) || !add_names(vendor, &names, why))
        return std::nullopt;
    names.insert(names.end(), site_names.begin(), site_names.end());
    std::ranges::sort(names);
    names.erase(std::unique(names.begin(), names.end()), names.end());
    std::vector<keeper> keepers;
    for (const std::string &name : names) {
        const bool is_of_site = std::ranges::find(site_names, name) != site_names.end();
        const std::string path = (is_of_site ? keeper_folder : vendor) + "/" + name;
        if (is_program(path))
            keepers.push_back({name, path});
    }
    return keepers;
}

keeper_answer ask_keeper(const keeper &who, keeper_verb verb, const snapshot &of, const snapshot_member &one,
                         const unique_fd &lock)
{
    return run_keeper(who, verb, {.words = {}, .variables = variables_of(of, one), .kept = lock.get()});
}

keeper_answer ask_keeper_of(keeper_verb verb, const snapshot &of, const snapshot_member &one,
                            const unique_fd &lock)
{
    keeper_answer none;
    const auto who = find_keeper(one.keeper, &none.why);
    return who ? ask_keeper(*who, verb, of, one, lock) : none;
}

keeper_answer ask_keeper_for_list(const std::string &name, const std::vector<std::string> &places,
                                  bool with_sizes)
{
    keeper_answer none;
    const auto who = find_keeper(name, &none.why);
    const std::string sizes = with_sizes ? "QELCD_SIZES=yes" : "QELCD_SIZES=";
    return who ? run_keeper(*who, keeper_verb::list, {.words = places, .variables = {sizes}}) : none;
}
