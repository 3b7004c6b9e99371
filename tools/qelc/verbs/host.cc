// Verbs for the daemon's configuration and its start. They are for whoever runs the host, or its service
// manager.
#include "base/clock.h"
#include "base/log.h"
#include "config/config.h"
#include "platform/linux/host/sysfs.h"
#include "platform/linux/state/settings.h"
#include "protocol/commands.h"
#include "tools/common/visible.h"
#include "tools/qelc/ask.h"
#include "tools/qelc/config_check.h"
#include "tools/qelc/verbs/families.h"
#include "tools/qelc/views/json_answer.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <nlohmann/json.hpp>

namespace {
// --- check-config ------------------------------------------------------------------------------------

int tell_remarks(const std::string &path, const config_remarks &remarks, bool as_json)
{
    if (as_json) {
        const json_object answer = {
            {"usable", remarks.faults.empty()}, {"faults", remarks.faults}, {"hints", remarks.hints}};
        puts(answer.dump().c_str());
    } else {
        for (const std::string &fault : remarks.faults)
            fprintf(stderr, "qelc: %s\n", visible(fault).c_str());
        for (const std::string &hint : remarks.hints)
            fprintf(stderr, "qelc: hint: %s\n", visible(hint).c_str());
        if (remarks.faults.empty())
            printf("%s: the daemon can use it\n", visible(path).c_str());
    }
    return remarks.faults.empty() ? exit_ok : exit_refused;
}

int check_it(const verb_options &given, bool as_json)
{
    log_to_stderr(LOG_WARNING); // what the daemon's reader says
    config_remarks remarks = check_config(given.config_file);
    if (given.config_file == config_path) {
        read_settings(); // of the libraries: a line without use is left out, and the daemon serves all the
                         // same
        if (remarks.faults.empty() && !is_daemon_running())
            check_port_is_free(given.config_file, remarks);
    }
    return tell_remarks(given.config_file, remarks, as_json);
}

// --- init --------------------------------------------------------------------------------------------

// Writes a file beside PATH and gives it that name, unless there is one: a file that is there stays, and one
// that is there is whole. Returns an error number.
int write_new(const std::string &path, const qel_t &content)
{
    const std::string unfinished = path + ".new";
    umask(0027); // whoever may read it knows the addresses of the manager
    std::error_code ignored;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), ignored);
    if (unlink(unfinished.c_str()) != 0 && errno != ENOENT)
        return errno;
    qelcfg_write(unfinished.c_str(), &content);
    const bool is_written = check_config(unfinished).faults.empty();
    const int error = !is_written ? EIO : link(unfinished.c_str(), path.c_str()) != 0 ? errno : 0;
    unlink(unfinished.c_str());
    return error;
}

int make_config(const verb_options &given, bool as_json)
{
    log_to_stderr(LOG_WARNING);
    const std::string &path = given.config_file;
    qel_t content;
    content.guid = read_attribute("/proc/sys/kernel/random/uuid");
    content.client_port = given.client_port;
    content.server_port = given.server_port;
    if (!content.guid)
        return fail(exit_refused, "/proc/sys/kernel/random/uuid", strerror(errno));
    if (const int error = write_new(path, content)) // EEXIST is a file that somebody has written
        return fail(exit_refused, path, error == EEXIST ? "it is there already, and stays" : strerror(error));
    if (as_json) {
        const json_object answer = {{"file", path}, {"guid", *content.guid}};
        puts(answer.dump().c_str());
    } else {
        printf("%s: ports %d and %d, ClientGUID %s\n", visible(path).c_str(), content.client_port,
               content.server_port, content.guid->c_str());
    }
    return exit_ok;
}

// --- wait-ready --------------------------------------------------------------------------------------

bool answers()
{
    const peer_options local;
    std::string error;
    const unique_fd daemon = connect_local(local.socket_path, local.timeout, error);
    return daemon.is_open() && exchange(daemon, command::nop_command, local.origin, std::nullopt, error);
}

// A supervisor takes a moment until it has its PID file, and ends for good when its working process does. So
// one that has not come, or has gone, is missed only after some looks.
int wait_until_ready(const verb_options &given, bool /*as_json*/)
{
    constexpr unsigned pause_ms = 100;
    constexpr unsigned most_misses = 30;
    const int64_t deadline = clock_monotonic() + given.seconds;
    for (unsigned misses = 0; !answers(); clock_sleep_ms(pause_ms)) {
        misses = is_daemon_running() ? 0 : misses + 1;
        if (misses == most_misses)
            return fail(exit_no_answer, "qelcd", "it does not run; its last lines in the system log say why");
        if (clock_monotonic() > deadline)
            return fail(exit_no_answer, "qelcd", "no answer in " + std::to_string(given.seconds) + " s");
    }
    return exit_ok;
}

constexpr verb table[] = {
    {.name = "check-config",
     .usage = "[FILE]",
     .description = "say whether the daemon can use its configuration",
     .note = "What has to be mended is on standard error, with file and line; exit status 1 then.\n"
             "If no daemon runs, its port has to be free as well.\n",
     .add_options = add_config_file,
     .run_here = check_it},
    {.name = "init",
     .usage = "[--client-port PORT] [--server-port PORT] [FILE]",
     .description = "write a first configuration",
     .note = "With a new ClientGUID, by which managers know the host. A file that is there stays.\n",
     .add_options = add_new_config,
     .run_here = make_config},
    {.name = "wait-ready",
     .usage = "[--seconds SECONDS]",
     .description = "wait until the daemon of this host answers",
     .add_options = add_patience,
     .run_here = wait_until_ready},
};
} // namespace

std::span<const verb> host_verbs()
{
    return table;
}
