// Verbs for the daemon's configuration and its start. They are for whoever runs the host, or its service
// manager.
#include "base/log.h"
#include "config/config.h"
#include "platform/linux/state/settings.h"
#include "tools/common/visible.h"
#include "tools/qelc/config_check.h"
#include "tools/qelc/daemon_wait.h"
#include "tools/qelc/verbs/families.h"
#include "tools/qelc/verbs/init.h"

#include <cstdio>
#include <nlohmann/json.hpp>

namespace {
// --- check-config ------------------------------------------------------------------------------------

json_object records_of(const config_remarks &remarks)
{
    json_object list = json_object::array();
    for (const std::string &fault : remarks.faults)
        list.push_back({{"status", "fault"}, {"text", fault}});
    for (const std::string &hint : remarks.hints)
        list.push_back({{"status", "remark"}, {"text", hint}});
    return list;
}

// Several faults have a line each; one is the error itself.
std::string reason_of(const std::vector<std::string> &faults)
{
    if (faults.size() == 1)
        return faults.front();
    for (const std::string &fault : faults)
        fprintf(stderr, "%s\n", visible(fault).c_str());
    return std::to_string(faults.size()) + " faults, each in a line above";
}

outcome check_it(const verb_options &given)
{
    log_to_stderr(LOG_WARNING); // what the daemon's reader says
    const std::string &path = given.config_file;
    config_remarks remarks = check_config(path);
    if (path == config_path) {
        read_settings(); // of the libraries: a line without use is left out, and the daemon serves all the
                         // same
        if (remarks.faults.empty() && !is_daemon_running())
            check_port_is_free(path, remarks);
    }
    for (const std::string &hint : remarks.hints)
        fprintf(stderr, "hint: %s\n", visible(hint).c_str());
    const bool is_usable = remarks.faults.empty();
    outcome end =
        page_outcome(is_usable ? visible(path) + ": the daemon can use it\n" : "", records_of(remarks));
    if (!is_usable) {
        end.status = exit_refused;
        end.headline = "the daemon cannot use its configuration";
        end.reason = reason_of(remarks.faults);
        end.hint = "mend it, then: qelc check-config";
    }
    return end;
}

// --- wait-ready --------------------------------------------------------------------------------------

outcome wait_until_ready(const verb_options &given)
{
    const std::string why = wait_for_daemon(given.seconds);
    if (!why.empty())
        throw verb_end{exit_no_answer, why, "qelc check-config says whether its configuration is of use"};
    return {};
}

std::string init_complaint(const verb_options &given)
{
    return given.config_only || given.config_file == config_path ? "" : "FILE goes with --config-only";
}

constexpr verb table[] = {
    {.name = "check-config",
     .usage = "[FILE]",
     .description = "say whether the daemon can use its configuration",
     .note = "What has to be mended is on standard error, with file and line; exit status 1 then.\n"
             "If no daemon runs, its port has to be free as well.\n",
     .add_options = add_config_file,
     .act_here = check_it,
     .only_shows = true},
    {.name = "init",
     .usage = "[--client-port PORT] [--server-port PORT] [--dry-run]\n"
              "            [--config-only [FILE]]",
     .description = "make this host its own manager",
     .note = "For a host without the storage system's manager. Writes a first configuration, with a\n"
             "new ClientGUID, unless there is one; starts the daemon and qelc-manager, adopts the\n"
             "host, and waits until a heartbeat has come. What is done already stays as it is.\n",
     .add_options = add_new_config,
     .complaint = init_complaint,
     .act_here = init},
    {.name = "wait-ready",
     .usage = "[--seconds SECONDS]",
     .description = "wait until the daemon of this host answers",
     .add_options = add_patience,
     .act_here = wait_until_ready,
     .only_shows = true},
};
} // namespace

std::span<const verb> host_verbs()
{
    return table;
}
