#include "tools/qelc/verbs/restore.h"

#include "base/log.h"
#include "platform/linux/agent/snapshot_acts.h"
#include "platform/linux/devices/scsi_guid.h"
#include "tools/common/visible.h"
#include "tools/qelc/ask.h"
#include "tools/qelc/bodies/snapshot.h"
#include "tools/qelc/new_snapshots.h"
#include "tools/qelc/views/restore.h"
#include "tools/qelc/views/volumes.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <iostream>
#include <thread>

namespace {
volatile sig_atomic_t stop = 0;

void request_stop(int /*signal*/)
{
    stop = 1;
}

// The second signal ends the program as usual.
void stop_at_signals()
{
    struct sigaction action {};
    action.sa_handler = request_stop;
    action.sa_flags = static_cast<int>(SA_RESETHAND | SA_RESTART);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        sigaction(signal, &action, nullptr);
}

void say(const std::string &line)
{
    fprintf(stderr, "qelc: %s\n", visible(line).c_str());
}

// --- The question ----------------------------------------------------------------------------------------

bool is_typed(const snapshot &of, const std::vector<restore_target> &targets)
{
    const bool is_group = !of.group.empty();
    const std::string name = is_group ? of.group : targets.front().disk.facts.name;
    fprintf(stderr, "Type the name of the %s to overwrite (%s), or anything else to stop: ",
            is_group ? "group" : "disk", visible(name).c_str());
    std::string typed;
    std::getline(std::cin, typed);
    return typed == name;
}

// From the answer on a signal ends the restore in good order.
bool is_confirmed(const snapshot &of, const std::vector<restore_target> &targets, bool is_certain)
{
    fputs(overwritten_page(of, targets).c_str(), stderr);
    if (is_certain || is_typed(of, targets)) {
        stop_at_signals();
        return true;
    }
    say("nothing was written");
    return false;
}

// --- The snapshot of the present state -------------------------------------------------------------------

// The storage system keeps those of its own volumes.
bool is_on_storage_system(const std::string &mirror)
{
    const auto disks = known_disks().value_or(std::vector<known_disk>{});
    return std::ranges::any_of(disks, [&](const known_disk &disk) {
        const auto &[vendor, model] = std::pair(disk.facts.vendor, disk.facts.model);
        return disk.guid == mirror && vendor && model && is_storage_volume(vendor->c_str(), model->c_str());
    });
}

// Asks again as long as the mirror is behind, as it is for a moment after the disk was unmounted. "" if the
// daemon has taken one.
std::string ask_for_snapshot(const std::string &guid)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    for (;;) {
        int status = exit_ok;
        peer_options daemon;
        daemon.timeout = 300; // the mark, and the keeper
        const auto reply = ask(daemon, command::create_snapshot, snapshot_document({false, guid}), status);
        if (!reply)
            return "the daemon does not answer";
        if (reply->recv_head.ret == status_ok)
            return "";
        if (reply->recv_head.ret != status_not_synchronised || std::chrono::steady_clock::now() >= end ||
            stop)
            return meaning_of(reply->recv_head.ret) + std::string(" (the system log says more)");
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
    }
}

bool take_snapshot(const restore_target &target, const std::string &restored, std::string *why)
{
    const std::string &guid = target.disk.guid;
    const new_snapshots taken(true);
    *why = ask_for_snapshot(guid);
    if (!why->empty())
        return false;
    const std::string name = taken.find({false, guid});
    if (name.empty() && !is_on_storage_system(target.mirror)) {
        *why = "the daemon has noted one in the journal, but nothing keeps it";
        return false;
    }
    say(target.disk.facts.name + ": a snapshot of its present state was taken" +
        (name.empty() ? "" : ": " + name));
    if (!name.empty() && !note_snapshot(name, "before " + restored + " was restored", why))
        say(name + ": it has no note: " + *why);
    return true;
}
} // namespace

int restore(const verb_options &given, bool as_json)
{
    const std::string &name = given.snapshots.front();
    log_to_stderr(LOG_WARNING);
    if (geteuid() != 0)
        return fail(exit_refused, name, "only root can restore it");
    if (!given.yes && isatty(STDIN_FILENO) == 0)
        return fail(exit_refused, name, "--yes is required if standard input is not a terminal");
    restore_progress progress;
    const restore_partner partner = {
        .say =
            [&](const std::string &line) {
                progress.end_line();
                say(line);
            },
        .confirm = [&](const snapshot &of,
                       const auto &targets) { return is_confirmed(of, targets, given.yes); },
        .take_snapshot = [&](const restore_target &target,
                             std::string *why) { return take_snapshot(target, name, why); },
        .progress = [&](const restore_target &target, uint64_t position) { progress.show(target, position); },
        .stop = &stop};
    if (!restore_snapshot({name, given.restore_to, !given.no_snapshot}, partner))
        return exit_refused;
    if (as_json)
        fputs(success_json().c_str(), stdout);
    return exit_ok;
}
