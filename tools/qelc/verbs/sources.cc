// The verbs for disks that are protected. What they were asked to do may be done for some of the disks only.
#include "base/xml.h"
#include "tools/common/report_view.h"
#include "tools/qelc/overwrite.h"
#include "tools/qelc/verbs/protect.h"

#include <algorithm>

namespace {
using item_list = std::vector<verb_item>;

constexpr char which_are_protected[] = "qelc mirrors shows which disks are protected";

item_list protected_disks(host &at, const verb_options &given)
{
    at.require_adopted();
    item_list items = at.disk_items(given.disks);
    for (verb_item &item : items) {
        if (item.is_open() && !at.mirror_of(item.guid))
            item.refuse(exit_not_found, "it is not protected");
    }
    return items;
}

std::vector<std::string> open_guids(const item_list &items)
{
    std::vector<std::string> guids;
    for (const verb_item &item : items) {
        if (item.is_open())
            guids.push_back(item.guid);
    }
    return guids;
}

void say_of_open(item_list &items, const std::string &text)
{
    for (verb_item &item : items) {
        if (item.is_open())
            item.text = text;
    }
}

// The disks that the answer calls failed.
std::vector<std::string> failed_disks(const request &reply)
{
    std::vector<std::string> guids;
    const xml_doc doc = reply.recv_xml ? xml_parse_text(reply.recv_xml.get()) : nullptr;
    for (const xmlNode *node : xml_children{doc ? find_child(xml_root(doc), "BackupList") : nullptr}) {
        if (xml_is_named(node, "Backup"))
            guids.push_back(report_value(node, "SrcGUID"));
    }
    return guids;
}

// What is found after a refusal.
std::string state_after(host &at, const std::string &guid)
{
    const mirror_view *mirror = at.mirror_of(guid);
    return mirror ? "the daemon has refused it; its mirror is now: " + mirror_state_text(*mirror)
                  : "it is not protected any more";
}

// The answer decides about each disk. A refusal that names none is one of all.
void judge(host &at, item_list &items, const request &reply, const char *done)
{
    const std::vector<std::string> failed = failed_disks(reply);
    const bool all_failed = failed.empty() && reply.recv_head.ret != status_ok;
    at.look_again();
    for (verb_item &item : items) {
        if (!item.is_open())
            continue;
        if (all_failed || std::ranges::find(failed, item.guid) != failed.end())
            item.refuse(exit_refused, state_after(at, item.guid));
        else if (const mirror_view *mirror = at.mirror_of(item.guid))
            item.text = std::string(done) + " (" + mirror_state_text(*mirror) + ")";
        else
            item.refuse(exit_refused, "it is not protected any more");
    }
}

bool has_open(const item_list &items)
{
    return std::ranges::any_of(items, &verb_item::is_open);
}

outcome copy_open(host &at, item_list items)
{
    if (has_open(items))
        judge(at, items, *at.ask(command::init_mirror, disk_list_document(open_guids(items))),
              "is to be copied to its mirror as a whole");
    return outcome_of(std::move(items), which_are_protected);
}

outcome planned(item_list items, const char *what)
{
    say_of_open(items, what);
    outcome end = outcome_of(std::move(items), which_are_protected);
    end.is_dry_run = true;
    return end;
}

// The groups with a schedule that one of the disks is in.
std::vector<std::string> scheduled_groups(const host &at, const std::vector<std::string> &guids)
{
    std::vector<std::string> names;
    for (const group_view &group : at.groups()) {
        const bool has_one = std::ranges::any_of(guids, [&](const std::string &guid) {
            return std::ranges::find(group.disks, guid) != group.disks.end();
        });
        if (has_one && at.group_schedule(group.name).value_or(snapshot_times{}).interval > 0)
            names.push_back(group.name);
    }
    return names;
}

// The daemon ends the schedule of a group that loses a mirror, and says nothing of it.
void tell_of_groups(const host &at, const std::vector<std::string> &names, item_list &items)
{
    for (const std::string &name : names) {
        if (at.group_schedule(name).value_or(snapshot_times{}).interval == 0)
            items.push_back({"group", name, "", exit_ok,
                             "takes no more snapshots, as not all of its disks are protected"});
    }
}
} // namespace

outcome unprotect(host &at, const verb_options &given)
{
    item_list items = protected_disks(at, given);
    if (given.dry_run)
        return planned(std::move(items), "protected no more");
    const std::vector<std::string> groups = scheduled_groups(at, open_guids(items));
    if (has_open(items)) {
        at.ask(command::del_backup, disk_list_document(open_guids(items)));
        at.look_again();
    }
    for (verb_item &item : items) {
        if (item.is_open() && at.mirror_of(item.guid))
            item.refuse(exit_refused, state_after(at, item.guid));
    }
    say_of_open(items, "is no longer protected");
    tell_of_groups(at, groups, items);
    return outcome_of(std::move(items), which_are_protected);
}

outcome resync(host &at, const verb_options &given)
{
    item_list items = protected_disks(at, given);
    std::vector<mirror_pair> pairs;
    for (const std::string &guid : open_guids(items))
        pairs.push_back(at.mirror_of(guid)->guids);
    confirm_overwriting(at, pairs, given);
    if (given.dry_run)
        return planned(std::move(items), "copied to its mirror as a whole");
    return copy_open(at, std::move(items));
}

outcome copy_disks(host &at, const std::vector<named_disk> &disks)
{
    item_list items;
    for (const named_disk &disk : disks)
        items.push_back({"disk", disk.name, disk.guid});
    return copy_open(at, std::move(items));
}

outcome cancel_resync(host &at, const verb_options &given)
{
    item_list items = protected_disks(at, given);
    if (given.dry_run)
        return planned(std::move(items), "copied no further");
    if (has_open(items))
        judge(at, items, *at.ask(command::cancel_init_mirror, disk_list_document(open_guids(items))),
              "is copied no further");
    return outcome_of(std::move(items), which_are_protected);
}
