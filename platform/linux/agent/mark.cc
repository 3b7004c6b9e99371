#include "platform/linux/agent/mark.h"

#include "platform/linux/agent/hooks.h"
#include "platform/linux/agent/journal.h"
#include "platform/linux/agent/keepers.h"
#include "platform/linux/agent/lock.h"
#include "platform/linux/agent/relationship.h"
#include "platform/linux/agent/retention.h"
#include "platform/linux/agent/snapshot_taking.h"
#include "platform/linux/host/boundary.h"
#include "platform/linux/state/settings.h"
#include "platform/linux/state/text.h"

namespace {

struct hook_run {
    std::string name;
    marked_device of;
};

// What is to be undone if the mark fails.
struct mark_progress {
    std::optional<snapshot_plan> plan;
    std::vector<hook_run> hooks;
};

std::string journal_text(const mark_order &order, const std::string &result)
{
    std::string guids;
    for (const std::string &guid : order.guids)
        guids += (guids.empty() ? "" : ",") + escaped(guid);
    return (order.group.empty() ? "disk" : "group " + escaped(order.group)) + " " + guids + " " + result;
}

bool may_go_unkept(const snapshot_plan &plan, const std::vector<std::string> &hooks, std::string *why)
{
    if (plan.unkept.empty() || !hooks.empty() || read_settings().unkept == unkept_marks::journal)
        return true;
    *why = "nothing would keep " + plan.unkept.front() + ". Put a keeper into " + keeper_folder +
           " or a hook into " + hook_folder +
           ", or set unkept = journal, for marks that keep no data, in /etc/kavtessaron/embedded.conf";
    return false;
}

bool run_hooks(const std::vector<marked_device> &mirrors, const std::vector<std::string> &hooks,
               std::vector<hook_run> *done, std::string *why)
{
    done->reserve(mirrors.size() * hooks.size());
    for (const marked_device &of : mirrors) {
        for (const std::string &name : hooks) {
            hook_run run = {name, of}; // made before the hook runs, so that it can be undone whatever happens
            if (!run_hook(name, hook_action::mark, of, why))
                return false;
            done->push_back(std::move(run));
        }
    }
    return true;
}

bool know_devices(const std::vector<marked_device> &mirrors, std::string *why)
{
    for (const marked_device &marked : mirrors) {
        if (!keep_device(marked)) {
            *why = "device " + escaped(marked.guid) + " cannot be kept";
            return false;
        }
    }
    return true;
}

// The journal comes last, so that it only lists what has been done.
bool try_to_mark(const mark_order &order, mark_progress *done, std::string *why)
{
    const auto level = wait_until_level(order.guids, why);
    std::vector<std::string> hooks;
    if (!level || !list_hooks(&hooks, why))
        return false;
    done->plan = plan_snapshot(order.group, level->mirrors, why);
    if (!done->plan || !may_go_unkept(*done->plan, hooks, why) ||
        !make_room_for(done->plan->record, done->plan->lock, why) || !keep_members(&*done->plan, why) ||
        !run_hooks(level->mirrors, hooks, &done->hooks, why) || !know_devices(level->mirrors, why) ||
        !complete_snapshot(&*done->plan, why))
        return false;
    *why = "it cannot be written to the journal";
    const snapshot &kept = done->plan->record;
    return append_journal(journal_text(order, kept.members.empty() ? "ok" : "ok " + kept.name));
}

// Adds failures to undo to WHY. One that runs out of memory does not stop the others.
void undo(const mark_progress &done, std::string *why)
{
    for (auto run = done.hooks.rbegin(); run != done.hooks.rend(); ++run) {
        end_at_exception("The undoing of a mark", [&] {
            std::string complaint;
            if (!run_hook(run->name, hook_action::undo, run->of, &complaint))
                *why += "; not undone: " + complaint;
        });
    }
    if (done.plan && done.plan->is_begun)
        drop_snapshot(done.plan->record, done.plan->lock, why);
}

} // namespace

int mark_mirrors(const mark_order &order)
{
    const unique_fd lock = lock_marks(order.guids);
    if (!lock.is_open())
        return -1;
    mark_progress done;
    std::string why;
    bool is_marked = false;
    const int error = error_of([&] {
        drop_unfinished(order.guids);
        is_marked = try_to_mark(order, &done, &why);
    });
    if (is_marked) {
        end_at_exception("The removal of old snapshots", [&] { prune_series_of(done.plan->record); });
        return 0;
    }
    if (error != 0)
        why.clear();
    undo(done, &why);
    if (error != 0)
        why.insert(0, strerror(error));
    const std::string text = journal_text(order, "failed: " + why);
    log_error("The mark of %s", text.c_str());
    append_journal(text);
    return -1;
}
