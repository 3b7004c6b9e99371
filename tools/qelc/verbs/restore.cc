#include "tools/qelc/verbs/restore.h"

#include "platform/linux/agent/snapshot_acts.h"
#include "platform/linux/devices/scsi_guid.h"
#include "tools/common/human_text.h"
#include "tools/qelc/bodies/snapshot.h"
#include "tools/qelc/confirm.h"
#include "tools/qelc/here.h"
#include "tools/qelc/nearest.h"
#include "tools/qelc/new_snapshots.h"
#include "tools/qelc/views/restore.h"

#include <algorithm>
#include <chrono>
#include <csignal>
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

// --- The question ----------------------------------------------------------------------------------------

bool is_name_typed(const snapshot &of, const std::vector<restore_target> &targets)
{
    const bool is_group = !of.group.empty();
    return is_typed(is_group ? "group to overwrite" : "disk to overwrite",
                    is_group ? of.group : targets.front().disk.facts.name);
}

// From the answer on a signal ends the restore in good order.
bool is_confirmed(const snapshot &of, const std::vector<restore_target> &targets, bool has_to_ask)
{
    fputs(overwritten_page(of, targets).c_str(), stderr);
    if (has_to_ask && !is_name_typed(of, targets))
        return false;
    stop_at_signals();
    return true;
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

// --- The end ---------------------------------------------------------------------------------------------

std::vector<verb_item> items_of(const restore_end &end)
{
    std::vector<verb_item> items;
    for (const restored_disk &disk : end.disks)
        items.push_back({"disk", disk.name, disk.guid, exit_ok,
                         "is restored; " + size_text(disk.written) + " of " + size_text(disk.size) +
                             " differed and were written"});
    return items;
}

std::vector<verb_item> plan_of(const std::vector<restore_target> &targets, const std::string &name)
{
    std::vector<verb_item> items;
    for (const restore_target &target : targets)
        items.push_back({"disk", target.disk.facts.name, target.disk.guid, exit_ok,
                         "overwritten with " + name + ", where it differs"});
    return items;
}

// A name that is none of a disk.
void check_disk(const std::string &name)
{
    std::string why;
    if (!name.empty() && !find_disk(name, &why))
        throw verb_end{exit_not_found, name + ": " + why, "qelc disks shows the disks of the host"};
}
} // namespace

snapshot require_snapshot(const verb_options &given)
{
    const std::string &name = given.snapshots.front();
    if (auto one = load_snapshot(name))
        return *std::move(one);
    std::vector<std::string> names;
    for (const snapshot &one : load_snapshots().value_or(std::vector<snapshot>{}))
        names.push_back(one.name);
    throw verb_end{exit_not_found, name + ": there is no such snapshot" + did_you_mean(name, names),
                   "qelc snapshots shows those that there are"};
}

outcome restore(const verb_options &given)
{
    require_root();
    const std::string name = require_snapshot(given).name;
    check_disk(given.restore_to);
    const bool asks = has_to_ask(given, "it overwrites disks");
    outcome answer;
    restore_progress progress;
    const restore_partner partner = {
        .say =
            [&](const std::string &line) {
                progress.end_line();
                say(line);
            },
        .confirm =
            [&](const snapshot &of, const auto &targets) {
                answer.is_dry_run = given.dry_run;
                answer.items = given.dry_run ? plan_of(targets, name) : std::vector<verb_item>();
                return is_confirmed(of, targets, asks) && !given.dry_run;
            },
        .take_snapshot = [&](const restore_target &target,
                             std::string *why) { return take_snapshot(target, name, why); },
        .progress = [&](const restore_target &target, uint64_t position) { progress.show(target, position); },
        .stop = &stop};
    const restore_end end = restore_snapshot({name, given.restore_to, !given.no_snapshot}, partner);
    progress.end_line();
    if (answer.is_dry_run)
        return answer;
    answer.items = items_of(end);
    answer.status = end.is_done ? exit_ok : end.disks.empty() ? exit_refused : exit_partly;
    answer.reason = end.is_done       ? ""
                    : end.why.empty() ? "you did not confirm it; nothing was written"
                                      : end.why;
    return answer;
}
