// Lets memory run out in the working process at every allocation, one after the other:
//
//   bench-faults BUILD EVERY SAMPLES SHARE SHARES [CASE]     inside the private host of
//   scripts/faults/host.sh
//
// For each case of fault_cases.h the allocations up to EVERY fail, each alone and each with all later ones,
// and then SAMPLES more that are spread over the rest. This process takes share SHARE of SHARES of them. A
// line per case:
//
//   CASE;ALLOCATIONS;INJECTED;CRASHES;HANGS;LOCKS;WRONG;SHORT;SILENT
//
// Whatever fails, the process must live on, the command be answered or its connection closed, no lock stay,
// the configuration be that from before or after, and a failure be told in the log. SHORT counts answers of
// success that lack a part which did not fit, and that the log tells of: lists that are collected may come
// out short.

#include "base/xml.h"
#include "bench/fault_cases.h"
#include "bench/fault_host.h"
#include "bench/fault_memory.h"
#include "bench/private_daemon.h"
#include "protocol/commands.h"

#include <fcntl.h>
#include <sys/mman.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <optional>
#include <set>
#include <sstream>
#include <thread>

namespace {
using std::chrono_literals::operator""ms;

struct tally {
    uint64_t allocations = 0;
    int injected = 0;
    int crashes = 0;
    int hangs = 0;
    int locks = 0;
    int wrong = 0;
    int told_short = 0;
    int silent = 0;
};

struct settings {
    std::string build;
    uint64_t every = 0;
    uint64_t samples = 0;
    uint64_t share = 0;
    uint64_t shares = 1;
    std::string only;
};

fault_plan *shared_plan()
{
    constexpr char path[] = "/var/faults/plan";
    const unique_fd file(open(path, O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    if (ftruncate(file.get(), sizeof(fault_plan)) != 0)
        exit(2);
    setenv("QELCD_FAULTS", path, 1);
    return static_cast<fault_plan *>(
        mmap(nullptr, sizeof(fault_plan), PROT_READ | PROT_WRITE, MAP_SHARED, file.get(), 0));
}

// TEXT without the lines that hold PATTERN.
std::string without(const std::string &pattern, const std::string &text)
{
    std::istringstream lines(text);
    std::string rest;
    for (std::string line; std::getline(lines, line);) {
        if (line.find(pattern) == std::string::npos)
            rest += line + "\n";
    }
    return rest;
}

class trial {
public:
    trial(const fault_case &what, fault_plan &plan, error_log &log) : what_(what), plan_(plan), log_(log) {}

    // Without a fault. False if the daemon is gone.
    bool play_baseline();
    // With a fault. False if there was no such allocation.
    bool play(uint64_t number, bool and_later);

    tally seen;

private:
    std::string config_text() const;
    bool restart();
    void play_command();
    void wait_until_quiet();
    void judge(uint64_t number, bool and_later);
    void judge_answer();
    void judge_config(const std::string &text, bool is_saved);
    void probe();
    answer save_again();
    void count(int &fault, const std::string &description);

    const fault_case &what_;
    fault_plan &plan_;
    error_log &log_;
    int worker_ = 0;
    bool is_known_ = false; // the daemon is in the state of the case
    answer expected_;
    answer given_;
    std::string before_;
    std::string after_;
    std::string place_;
    std::vector<std::string> errors_; // that the log told of during the fault
};

void trial::count(int &fault, const std::string &description)
{
    ++fault;
    fprintf(stderr, "%s: %s\n", place_.c_str(), description.c_str());
}

// Kills the worker, so that a new one starts with the configuration of the case.
bool trial::restart()
{
    const char *folder = getenv("QELCD_SCRIPT");
    std::ofstream(std::string(folder) + "/relationships") << relationships_of(what_.state);
    std::ofstream(std::string(folder) + "/calls");
    const int old = worker();
    std::ofstream(config_file) << config_of(what_.state);
    kill(old, SIGKILL);
    if (!wait_for_new_worker(old))
        return false;
    for (int tries = 0; tries < 5000 && ask(command::nop_command, "").status != 0; ++tries)
        std::this_thread::sleep_for(1ms);
    worker_ = worker();
    is_known_ = true;
    return worker_ != 0;
}

// A change that changes nothing: the record's lock is free, and the file becomes what the record is.
answer trial::save_again()
{
    if (what_.code == command::rename_client)
        return ask(
            command::kav_set_cdp_schedule,
            R"(<Tessaron><Snap SourceType="1" Source="G2"><Schedule StartTime="0" IntervalSeconds="0"/>)"
            "</Snap></Tessaron>",
            10);
    return ask(command::rename_client,
               "<Tessaron><Client Alias=\"" + std::string(host_alias) + "\"/></Tessaron>", 10);
}

// Waits until threads in the background have allocated nothing for a while.
void trial::wait_until_quiet()
{
    const auto least = what_.state == host_state::due ? 1300ms : 100ms;
    std::this_thread::sleep_for(least);
    uint64_t last = plan_.seen;
    for (int same = 0, looks = 0; same < 5 && looks < 200; ++looks) {
        std::this_thread::sleep_for(10ms);
        same = plan_.seen == last ? same + 1 : 0;
        last = plan_.seen;
    }
}

void trial::play_command()
{
    if (what_.code == 0) {
        restart();
        wait_until_quiet();
    } else {
        given_ = ask(what_.code, what_.body, 60,
                     [this] { return worker() != worker_ || log_.has("Failed to initialize request"); });
    }
    plan_.disarm();
}

bool trial::play_baseline()
{
    if (!restart() || (what_.state != host_state::free && save_again().status != 0))
        return false;
    before_ = config_text();
    plan_.arm(only_count, false, what_.code == 0 ? fault_background : fault_connections);
    play_command();
    expected_ = given_;
    seen.allocations = plan_.seen;
    if (what_.state == host_state::free && ask(command::nop_command, "").status != 0)
        return false;
    after_ = config_text();
    place_ = what_.name;
    if (what_.code != 0 && expected_.status != 0)
        fprintf(stderr, "%s: status %u without a fault\n", what_.name, expected_.status);
    is_known_ = false;
    return true;
}

// The configuration without the comment that has the time. When a manager moves, its target comes in a step
// of its own, once the channel stands.
std::string trial::config_text() const
{
    std::ifstream file(config_file);
    const std::string text = without("<!--", std::string(std::istreambuf_iterator<char>(file), {}));
    return what_.code == command::refresh_server ? without("<TargetIQN>", text) : text;
}

void trial::judge_config(const std::string &text, bool is_saved)
{
    const bool is_whole = xml_parse_file(config_file) != nullptr;
    // Addresses of the manager that do not fit are left out, as required.
    constexpr char address[] = "<ManagerIPAddr>";
    const bool is_short = without(address, text) == without(address, after_) && !errors_.empty();
    if (!is_whole)
        count(seen.wrong, "the configuration is torn");
    else if (what_.state == host_state::due)
        return; // its times move on
    else if (text != before_ && text != after_ && is_short)
        ++seen.told_short;
    else if (text != before_ && text != after_)
        count(seen.wrong, "the configuration is neither that from before nor that from after:\n" + text);
    else if (is_saved && given_.status == 0 && text != after_ && !is_short)
        count(seen.wrong, "the answer was success, but the change is lost");
}

void trial::judge_answer()
{
    const bool is_left_open = std::any_of(errors_.begin(), errors_.end(), [](const std::string &line) {
        return line.find("Failed to initialize request") != std::string::npos; // as required
    });
    const bool is_other = given_.status != expected_.status || given_.body != expected_.body;
    if (!given_.has_come && !given_.is_closed && !is_left_open)
        count(seen.hangs, "no answer");
    else if (is_other && errors_.empty())
        count(seen.silent,
              "status " + std::to_string(given_.status) + ", and no line in the log\n" + given_.body);
    else if (is_other && given_.status == expected_.status)
        ++seen.told_short;
}

// Afterwards: both locks are free, and the record is what the file was before or after.
void trial::probe()
{
    const bool is_free = what_.state == host_state::free;
    const answer saved = is_free ? answer{.has_come = true, .status = 0} : save_again();
    const bool may_be_released = what_.code == command::del_client;
    if (!saved.has_come || (saved.status != 0 && !may_be_released))
        count(seen.locks, "a change is not made");
    const uint32_t needs_inventory = is_free ? command::scan_client : command::dbcfg_del;
    if (!ask(needs_inventory, R"(<Tessaron><DBCfgDel InstanceName="no"/></Tessaron>)", 10).has_come)
        count(seen.locks, "the inventory is locked");
    if (!ask(command::local_list, "", 10).has_come)
        count(seen.locks, "the record's content is locked");
}

void trial::judge(uint64_t number, bool and_later)
{
    place_ =
        std::string(what_.name) + ", allocation " + std::to_string(number) + (and_later ? " and later" : "");
    ++seen.injected;
    is_known_ = false;
    if (worker() != worker_) {
        count(seen.crashes, "the working process has ended");
        return;
    }
    if (what_.code != 0)
        judge_answer();
    else if (and_later && number <= seen.allocations / 2 && errors_.empty())
        count(seen.silent,
              "no line in the log"); // a single one may have done no harm: glibc can do without a buffer
    const std::string text = config_text();
    judge_config(text, false);
    probe();
    const std::string saved = config_text();
    const bool has_been_saved = what_.state != host_state::free;
    if (has_been_saved && what_.code != command::del_client)
        judge_config(saved, true);
    is_known_ = has_been_saved && saved == before_ && worker() == worker_ && what_.code != 0;
}

bool trial::play(uint64_t number, bool and_later)
{
    if (what_.code != 0)
        plan_.disarm();
    if (!is_known_ && what_.code != 0) {
        restart();
        if (what_.state != host_state::free)
            save_again();
    }
    log_.take();
    plan_.arm(number, and_later, what_.code == 0 ? fault_background : fault_connections);
    play_command();
    if (plan_.failed == 0) {
        is_known_ = false;
        return false;
    }
    errors_ = log_.take();
    judge(number, and_later);
    return true;
}

// The allocations that fail: all up to EVERY, and SAMPLES of the rest.
std::set<uint64_t> numbers(const settings &wanted, uint64_t allocations)
{
    std::set<uint64_t> all;
    for (uint64_t number = 1; number <= std::min(wanted.every, allocations); ++number)
        all.insert(number);
    const uint64_t rest = allocations > wanted.every ? allocations - wanted.every : 0;
    for (uint64_t sample = 0; sample < wanted.samples && rest > 0; ++sample)
        all.insert(wanted.every + 1 + sample * rest / wanted.samples);
    return all;
}

bool play_case(const fault_case &what, const settings &wanted, fault_plan &plan, error_log &log,
               answering_manager &manager)
{
    manager.answer_as_adopter(what.code == 0);
    trial one(what, plan, log);
    if (!one.play_baseline()) {
        fprintf(stderr, "%s: the daemon is gone\n", what.name);
        return false;
    }
    unsigned position = 0;
    for (const uint64_t number : numbers(wanted, one.seen.allocations)) {
        if ((position++ + what.part / 2) % what.part != 0)
            continue;
        for (const bool and_later : {false, true}) {
            if ((number * 2 + and_later) % wanted.shares == wanted.share)
                one.play(number, and_later);
        }
    }
    const tally &seen = one.seen;
    printf("%s;%llu;%d;%d;%d;%d;%d;%d;%d\n", what.name, static_cast<unsigned long long>(seen.allocations),
           seen.injected, seen.crashes, seen.hangs, seen.locks, seen.wrong, seen.told_short, seen.silent);
    fflush(stdout);
    return seen.crashes + seen.hangs + seen.locks + seen.wrong + seen.silent == 0;
}

bool start_daemon(const settings &wanted)
{
    std::ofstream(config_file) << config_of(host_state::adopted);
    const std::string command = "LD_LIBRARY_PATH=" + wanted.build +
                                "/lib/scripted LD_PRELOAD=" + wanted.build + "/lib/libfault-memory.so qelcd";
    return system(command.c_str()) == 0 && wait_for_new_worker(0);
}
} // namespace

int main(int argc, char **argv)
{
    if (argc < 6)
        return 2;
    const settings wanted = {argv[1],
                             strtoull(argv[2], nullptr, 10),
                             strtoull(argv[3], nullptr, 10),
                             strtoull(argv[4], nullptr, 10),
                             strtoull(argv[5], nullptr, 10),
                             argc > 6 ? argv[6] : ""};
    xml_init();
    fault_plan *plan = shared_plan();
    error_log log;
    answering_manager manager;
    if (!start_daemon(wanted))
        return 2;
    bool is_well = true;
    for (const fault_case &what : fault_cases()) {
        if (std::string(what.name).starts_with(wanted.only))
            is_well = play_case(what, wanted, *plan, log, manager) && is_well;
    }
    kill(supervisor(), SIGTERM);
    return is_well ? 0 : 1;
}
