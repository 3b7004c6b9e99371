#include "platform/linux/agent/mark.h"

#include "platform/linux/agent/hooks.h"
#include "platform/linux/agent/journal.h"
#include "platform/linux/agent/lock.h"
#include "platform/linux/agent/relationship.h"
#include "platform/linux/host/boundary.h"
#include "platform/linux/state/text.h"

namespace {

struct hook_run {
    std::string name;
    marked_device of;
};

std::string journal_text(const mark_order &order, const std::string &result)
{
    std::string guids;
    for (const std::string &guid : order.guids)
        guids += (guids.empty() ? "" : ",") + escaped(guid);
    return order.what + " " + guids + " " + result;
}

bool run_hooks(const std::vector<marked_device> &mirrors, std::vector<hook_run> *done, std::string *why)
{
    std::vector<std::string> hooks;
    if (!list_hooks(&hooks, why))
        return false;
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

bool keep_devices(const std::vector<marked_device> &mirrors, std::string *why)
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
bool try_to_mark(const mark_order &order, std::vector<hook_run> *done, std::string *why)
{
    const auto level = wait_until_level(order.guids, why);
    if (!level || !run_hooks(level->mirrors, done, why) || !keep_devices(level->mirrors, why))
        return false;
    *why = "it cannot be written to the journal";
    return append_journal(journal_text(order, "ok"));
}

// Adds failures to undo to WHY. One that runs out of memory does not stop the others.
void undo(const std::vector<hook_run> &done, std::string *why)
{
    for (auto run = done.rbegin(); run != done.rend(); ++run) {
        end_at_exception("The undoing of a mark", [&] {
            std::string complaint;
            if (!run_hook(run->name, hook_action::undo, run->of, &complaint))
                *why += "; not undone: " + complaint;
        });
    }
}

} // namespace

int mark_mirrors(const mark_order &order)
{
    const unique_fd lock = lock_marks(order.guids);
    if (!lock.is_open())
        return -1;
    std::vector<hook_run> done;
    std::string why;
    bool is_marked = false;
    const int error = error_of([&] { is_marked = try_to_mark(order, &done, &why); });
    if (is_marked)
        return 0;
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
