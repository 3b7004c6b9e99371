#include "tools/qelc/verbs/init.h"

#include "config/config.h"
#include "platform/linux/agent/limited_run.h"
#include "platform/linux/host/text.h"
#include "tools/common/known_host.h"
#include "tools/qelc/config_check.h"
#include "tools/qelc/daemon_wait.h"
#include "tools/qelc/health/daemon_process.h"
#include "tools/qelc/heartbeat_wait.h"
#include "tools/qelc/here.h"
#include "tools/qelc/host.h"
#include "tools/qelc/new_config.h"
#include "tools/qelc/service.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstring>
#include <ctime>
#include <thread>

namespace {
constexpr char own_address[] = "127.0.0.1";

// What was done, step by step. A step is taken if all before it went well.
class init_steps {
public:
    explicit init_steps(bool is_plan) : is_plan_(is_plan) {}

    bool go_on() const { return hint_.empty(); }
    bool is_plan() const { return is_plan_; }
    void done(const char *kind, const std::string &name, const std::string &text)
    {
        items_.push_back({kind, name, "", exit_ok, text});
    }
    void failed(const char *kind, const std::string &name, const std::string &why, const std::string &hint)
    {
        items_.push_back({kind, name, "", exit_refused, why});
        hint_ = hint;
    }
    outcome end(const std::string &next) const
    {
        outcome end = outcome_of(items_, hint_);
        end.is_dry_run = is_plan_;
        if (go_on() && !is_plan_)
            end.hint = next;
        return end;
    }

private:
    bool is_plan_;
    std::string hint_; // of the step that failed
    std::vector<verb_item> items_;
};

// --- The configuration -----------------------------------------------------------------------------------

std::string ports_text(const verb_options &given)
{
    return "the ports " + std::to_string(given.client_port) + " and " + std::to_string(given.server_port);
}

void write_config(const verb_options &given, init_steps &steps)
{
    const std::string &path = given.config_file;
    if (steps.is_plan()) {
        steps.done("file", path, "written, with " + ports_text(given) + " and a new ClientGUID");
        return;
    }
    qel_t content;
    content.client_port = given.client_port;
    content.server_port = given.server_port;
    if (const int error = write_new_config(path, content))
        steps.failed("file", path, strerror(error), "look who may write there");
    else
        steps.done("file", path,
                   "is written, with " + ports_text(given) + " and the ClientGUID " + *content.guid);
}

// Without the path with which it begins.
std::string fault_in_file(const std::string &fault, const std::string &path)
{
    const std::string rest = fault.substr(path.size());
    return rest.starts_with(": ") ? rest.substr(2) : "line " + rest.substr(1);
}

// One that is there stays, and must be of use.
void check_former_config(const std::string &path, init_steps &steps)
{
    config_remarks remarks = check_config(path);
    if (remarks.faults.empty() && !is_daemon_running())
        check_port_is_free(path, remarks);
    if (remarks.faults.empty())
        steps.done("file", path, "is there, and stays as it is");
    else
        steps.failed("file", path, "the daemon cannot use it: " + fault_in_file(remarks.faults.front(), path),
                     "mend it, then: qelc check-config, and qelc init again");
}

void make_config(const verb_options &given, init_steps &steps)
{
    const std::string &path = given.config_file;
    if (access(path.c_str(), F_OK) != 0)
        write_config(given, steps);
    else if (given.config_only)
        steps.failed("file", path, "it is there already, and stays",
                     "qelc check-config says whether it is of use");
    else
        check_former_config(path, steps);
}

// --- The daemon ------------------------------------------------------------------------------------------

service daemon_service()
{
    return {"qelcd.service", {"qelcd"}, {}, true};
}

void start_daemon(init_steps &steps)
{
    constexpr unsigned patience = 60;
    const std::string way = way_to_start(daemon_service());
    const char *hint = "what is wrong stands in the system log: journalctl -t qelcd";
    if (does_daemon_answer())
        steps.done("service", "qelcd", "runs already");
    else if (steps.is_plan() && !way.empty())
        steps.done("service", "qelcd", "started: " + way);
    else if (const std::string why = start(daemon_service()); !why.empty())
        steps.failed("service", "qelcd", why, hint);
    else if (const std::string silence = wait_for_daemon(patience); !silence.empty())
        steps.failed("service", "qelcd", silence, hint);
    else
        steps.done("service", "qelcd", "is started: " + way);
}

// --- The manager -----------------------------------------------------------------------------------------

service manager_service(uint16_t port)
{
    return {"qelc-manager.service",
            {"qelc-manager", "standin-manager"},
            {"--bind", own_address, "--port", std::to_string(port), "--state", "/var/lib/qelc-manager"}};
}

bool listens(uint16_t port)
{
    std::string why;
    return connect_tcp({own_address, port}, 2, why).is_open();
}

bool listens_soon(uint16_t port)
{
    using namespace std::chrono_literals;
    for (int looks = 0; looks < 100; looks++) {
        if (listens(port))
            return true;
        std::this_thread::sleep_for(100ms);
    }
    return false;
}

// Takes the heartbeats.
void start_manager(uint16_t port, init_steps &steps)
{
    const service manager = manager_service(port);
    const std::string way = way_to_start(manager);
    const std::string place = "port " + std::to_string(port);
    const char *name = "qelc-manager";
    if (listens(port))
        steps.done("service", name, "runs already: " + place + " is taken");
    else if (way.empty())
        steps.failed(
            "service", name, "it is not installed",
            "install the package qelc-manager, then qelc init again; or let a storage system's manager "
            "adopt this host");
    else if (steps.is_plan())
        steps.done("service", name, "started: " + way);
    else if (const std::string why = start(manager); !why.empty())
        steps.failed("service", name, why,
                     "what is wrong stands in the system log: journalctl -u qelc-manager");
    else if (!listens_soon(port))
        steps.failed("service", name, "it was started, but nothing listens on " + place,
                     "what is wrong stands in the system log: journalctl -u qelc-manager");
    else
        steps.done("service", name, "is started: " + way);
}

std::string host_name()
{
    char name[HOST_NAME_MAX + 1] = "";
    gethostname(name, sizeof name - 1);
    return name;
}

// Returns why not, "" on success.
std::string adopt(uint16_t client_port)
{
    const std::string program = find_program({"qelc-manager", "standin-manager"});
    const run_result result = run_limited(
        {.words = {program, "adopt", own_address + (":" + std::to_string(client_port)), "--ip", own_address}},
        {.time = std::chrono::seconds(90), .output = size_t{1} << 20});
    if (result.complaint.empty() && result.exit_status == 0)
        return "";
    return result.complaint.empty() ? result.first_error_line : result.complaint;
}

bool is_own(const manager_view &manager)
{
    const auto addresses = split(manager.addresses, ' ');
    return std::ranges::find(addresses, own_address) != addresses.end();
}

// They go to another port than the adoption came from. After failures the daemon waits up to 69 seconds.
void await_heartbeat(const manager_view &manager, time_t from, init_steps &steps)
{
    constexpr unsigned patience = 75;
    const char *name = "qelc-manager";
    switch (wait_for_heartbeat(manager, from, patience)) {
    case heartbeat_end::came:
        steps.done("service", name, "has a heartbeat of " + host_name());
        break;
    case heartbeat_end::missing:
        steps.failed("service", name, "no heartbeat has come within " + std::to_string(patience) + " s",
                     "the daemon says why: journalctl -t qelcd; one that comes later is seen in qelc status");
        break;
    case heartbeat_end::not_told:
        steps.done("service", name,
                   "whether heartbeats come is not known here; journalctl -t qelcd names those that fail");
        break;
    }
}

// What the daemon says then is what counts.
void adopt_host(const host &at, uint16_t client_port, init_steps &steps)
{
    const std::string name = host_name();
    if (steps.is_plan()) {
        steps.done("host", name, "adopted by its own manager");
        return;
    }
    const time_t begin = time(nullptr);
    const std::string why = adopt(client_port);
    const auto manager = at.manager();
    if (!manager || !is_own(*manager)) {
        steps.failed("host", name, why.empty() ? "the daemon does not name its manager" : why, see_log);
        return;
    }
    steps.done("host", name, "is adopted, by its own manager");
    await_heartbeat(*manager, begin, steps);
}

// From when on a heartbeat shows that they come: not before the daemon was started.
time_t recent_time()
{
    const auto daemon = find_daemon();
    return std::max<time_t>(time(nullptr) - seconds_to_silence, daemon ? daemon->since : 0);
}

// A host with another manager is done; its own one has to run.
void find_manager(const verb_options &given, init_steps &steps)
{
    const host at{peer_options{}};
    const char *path = given.config_file.c_str();
    const auto config = access(path, F_OK) == 0 ? qelcfg_read(path) : nullptr;
    const auto manager = steps.is_plan() && !does_daemon_answer() ? std::nullopt : at.manager();
    if (manager && !is_own(*manager)) {
        steps.done("host", host_name(), "is adopted already, by the manager at " + manager->addresses);
        return;
    }
    const uint16_t server_port = config ? static_cast<uint16_t>(config->server_port) : given.server_port;
    const uint16_t client_port = config ? static_cast<uint16_t>(config->client_port) : given.client_port;
    start_manager(server_port, steps);
    if (!steps.go_on())
        return;
    if (!manager) {
        adopt_host(at, client_port, steps);
        return;
    }
    steps.done("host", host_name(), "is adopted already, by its own manager");
    if (!steps.is_plan())
        await_heartbeat(*manager, recent_time(), steps);
}
} // namespace

outcome init(const verb_options &given)
{
    require_root();
    init_steps steps(given.dry_run);
    make_config(given, steps);
    if (given.config_only)
        return steps.end("");
    if (steps.go_on())
        start_daemon(steps);
    if (steps.go_on())
        find_manager(given, steps);
    return steps.end(
        "whoever reaches the client port is obeyed, so guard it with a firewall. Next: qelc disks, then qelc "
        "mirror SRC MIRROR");
}
