// The verb that protects disks. It looks whether the daemon has done what it was asked for, as its success
// says less than that.
#include "tools/qelc/verbs/protect.h"

#include "tools/qelc/bodies/group.h"
#include "tools/qelc/countdown.h"
#include "tools/qelc/overwrite.h"
#include "tools/qelc/verbs/families.h"

#include <algorithm>

namespace {
std::vector<wanted_pair> pairs_meant(host &at, const verb_options &given)
{
    std::vector<wanted_pair> pairs;
    for (const std::string &text : given.disks) {
        const size_t sign = text.find('=');
        pairs.push_back({at.disk(text.substr(0, sign)), at.disk(text.substr(sign + 1), true)});
    }
    return pairs;
}

[[noreturn]] void refuse(const std::string &reason, const std::string &hint)
{
    throw verb_end{exit_refused, reason, hint};
}

// What the report tells against a pair.
void check_relationships(host &at, const wanted_pair &pair)
{
    const auto &[source, mirror] = pair;
    if (source.guid == mirror.guid)
        refuse(source.name + " cannot be its own mirror", "name another disk as the mirror");
    check_source(at, source);
    check_is_no_mirror(at, mirror);
}

// What the disks themselves tell against it.
void check_disks(host &at, const wanted_pair &pair)
{
    const disk_contents source = contents_of(at, pair.source.guid),
                        mirror = contents_of(at, pair.mirror.guid);
    if (mirror.size > 0 && mirror.size < source.size)
        refuse(mirror.name + " is smaller than " + source.name, "take a mirror of at least that size");
    if (!mirror.mounted.empty())
        refuse(mirror.mounted + "; a mounted disk cannot become a mirror",
               source.mounted.empty()
                   ? "did you mean " + mirror.name + "=" + source.name + "? Otherwise unmount it"
                   : "unmount it first");
}

// --- The group ---------------------------------------------------------------------------------------

std::vector<std::string> sources_of(const std::vector<wanted_pair> &pairs)
{
    std::vector<std::string> guids;
    for (const wanted_pair &pair : pairs)
        guids.push_back(pair.source.guid);
    return guids;
}

// True if the group was made here. Its members are to be the disks.
bool make_group(host &at, const verb_options &given, const std::vector<wanted_pair> &pairs)
{
    if (given.group.empty() || find_group(at.groups(), given.group))
        return false;
    if (given.no_create)
        require_group(at.groups(), given.group);
    if (given.dry_run)
        return true;
    const std::vector<std::string> guids = sources_of(pairs);
    require_success(*at.ask(command::bg_create, group_document(given.group, guids)));
    require_group(at.groups(), given.group);
    return true;
}

// Adds the protected disks that are not in the group that was there before.
void join_group(host &at, const std::string &name, const std::vector<wanted_pair> &pairs)
{
    const std::vector<group_view> groups = at.groups();
    std::vector<std::string> missing = sources_of(pairs);
    std::erase_if(missing, [&](const std::string &guid) {
        return std::ranges::find(require_group(groups, name).disks, guid) !=
               require_group(groups, name).disks.end();
    });
    if (!missing.empty())
        at.ask(command::add_disk_to_grp, group_document(name, missing));
}

// --- What is there afterwards ------------------------------------------------------------------------

std::vector<verb_item> items_of(host &at, const std::vector<wanted_pair> &pairs)
{
    std::vector<verb_item> items;
    for (const auto &[source, mirror] : pairs) {
        verb_item item{"disk", source.name, source.guid};
        const mirror_view *found = at.mirror_of(source.guid);
        if (found && found->guids.mirror == mirror.guid)
            item.text =
                "is protected, by " + at.name_of(mirror.guid) + " (" + mirror_state_text(*found) + ")";
        else
            item.refuse(exit_refused, at.is_known(mirror.guid)
                                          ? "the daemon has not protected it"
                                          : "its mirror " + mirror.guid + " has not come");
        items.push_back(std::move(item));
    }
    return items;
}

verb_item group_item(host &at, const verb_options &given, const std::vector<wanted_pair> &pairs)
{
    verb_item item{"group", given.group};
    const std::vector<group_view> groups = at.groups();
    const group_view *group = find_group(groups, given.group);
    if (!group)
        item.refuse(exit_refused, "the group is not there");
    else if (!std::ranges::all_of(sources_of(pairs), [&](const std::string &guid) {
                 return std::ranges::find(group->disks, guid) != group->disks.end();
             }))
        item.refuse(exit_refused, "the disks are not in the group");
    else
        item.text = "has the " + std::string(pairs.size() == 1 ? "disk" : "disks");
    return item;
}

std::vector<verb_item> plan(const verb_options &given, const std::vector<wanted_pair> &pairs,
                            bool makes_group)
{
    std::vector<verb_item> items;
    for (const auto &[source, mirror] : pairs)
        items.push_back({"disk", source.name, source.guid, exit_ok, "protected by " + mirror.name});
    if (makes_group)
        items.push_back({"group", given.group, "", exit_ok, "made, with these disks"});
    return items;
}

std::string pairs_text(const std::vector<wanted_pair> &pairs)
{
    std::string text;
    for (const wanted_pair &pair : pairs)
        text += " " + pair.source.name;
    return text;
}

outcome verdict(host &at, const verb_options &given, const std::vector<wanted_pair> &pairs, bool made_group)
{
    at.look_again();
    std::vector<verb_item> items = items_of(at, pairs);
    const bool is_protected = std::ranges::all_of(items, &verb_item::is_open);
    if (is_protected && !given.group.empty()) {
        if (!made_group)
            join_group(at, given.group, pairs);
        items.push_back(group_item(at, given, pairs));
    }
    if (is_protected && given.every > 0)
        items.push_back(schedule_item(at, source_of(given, pairs.back().source.guid), times_of(given)));
    if (made_group && std::ranges::none_of(items, &verb_item::is_open))
        at.ask(command::del_backup_grp, group_end_document(given.group));
    return outcome_of(std::move(items), see_log);
}
// How long the daemon may look for mirrors that it does not see.
unsigned seconds_for_absent(host &at, const std::vector<wanted_pair> &pairs)
{
    constexpr unsigned seconds_for_one = 40;
    const auto absent =
        std::ranges::count_if(pairs, [&](const wanted_pair &pair) { return !at.is_known(pair.mirror.guid); });
    return static_cast<unsigned>(absent) * seconds_for_one;
}

std::string absent_text(host &at, const std::vector<wanted_pair> &pairs)
{
    std::string names;
    for (const auto &[source, mirror] : pairs) {
        if (!at.is_known(mirror.guid))
            names += (names.empty() ? "" : ", ") + mirror.name;
    }
    return "the daemon looks for " + names + ", which it does not see yet,";
}
} // namespace

std::vector<mirror_pair> guids_of(const std::vector<wanted_pair> &pairs)
{
    std::vector<mirror_pair> guids;
    for (const auto &[source, mirror] : pairs)
        guids.push_back({source.guid, mirror.guid});
    return guids;
}

void check_is_no_mirror(host &at, const named_disk &disk)
{
    for (const mirror_view &other : at.view().mirrors) {
        if (other.guids.mirror == disk.guid)
            refuse(disk.name + " is the mirror of " + other.disk + " already",
                   "qelc unprotect " + other.disk + " ends that; qelc mirrors shows all mirrors");
    }
}

void check_source(host &at, const named_disk &source)
{
    if (const mirror_view *former = at.mirror_of(source.guid))
        refuse(source.name + " is protected already, by " + at.name_of(former->guids.mirror),
               "qelc unprotect " + source.name + " ends that; qelc resync " + source.name +
                   " copies it again");
    check_is_no_mirror(at, source);
}

void check_pairs(host &at, const std::vector<wanted_pair> &pairs)
{
    std::vector<std::string> named;
    for (const wanted_pair &pair : pairs) {
        check_relationships(at, pair);
        check_disks(at, pair);
        for (const named_disk &disk : {pair.source, pair.mirror}) {
            if (std::ranges::find(named, disk.guid) != named.end())
                refuse(disk.name + " is named twice", "name each disk once");
            named.push_back(disk.guid);
        }
    }
}

outcome protect_pairs(host &at, const std::vector<wanted_pair> &pairs, const verb_options &given)
{
    const bool made_group = make_group(at, given, pairs);
    if (given.dry_run)
        return {.items = plan(given, pairs, made_group), .is_dry_run = true};
    const std::string body =
        protection_document(guids_of(pairs), source_of(given, pairs.back().source.guid), times_of(given));
    {
        countdown patience(absent_text(at, pairs), seconds_for_absent(at, pairs));
        at.ask(command::add_backup, body, [&] { patience.show(); });
    }
    return verdict(at, given, pairs, made_group);
}

outcome protect(host &at, const verb_options &given)
{
    at.require_adopted();
    const std::vector<wanted_pair> pairs = pairs_meant(at, given);
    check_pairs(at, pairs);
    confirm_overwriting(at, guids_of(pairs), given);
    outcome end = protect_pairs(at, pairs, given);
    if (end.status == exit_ok && !end.is_dry_run)
        end.hint = "nothing is copied before you type: qelc resync" + pairs_text(pairs);
    return end;
}
