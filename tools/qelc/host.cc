#include "tools/qelc/host.h"

#include "tools/common/report_view.h"
#include "tools/qelc/bodies/snapshot.h"
#include "tools/qelc/nearest.h"
#include "tools/qelc/views/schedules.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

const char see_log[] = "the log of the daemon says more: journalctl -t qelcd";

namespace {
[[noreturn]] void end_not_adopted()
{
    throw verb_end{exit_not_adopted, "No manager has adopted this host", how_to_adopt};
}

[[noreturn]] void end_unreadable()
{
    throw verb_end{exit_no_answer, "the answer is not in the expected form", ""};
}

// When there was no answer.
std::string hint_for(const std::string &error, exit_status status, bool is_local)
{
    if (error.ends_with(strerror(EACCES)))
        return "type it as root, or as somebody whom the rights of the socket let in";
    if (status == exit_usage)
        return "--host takes an address, and a port after a colon";
    if (error.find("time-out: no answer") != std::string::npos)
        return "it may still be at work: look at what is there, or wait longer with --timeout SECONDS";
    return is_local ? "is the daemon running? qelc init starts it"
                    : "does the daemon run there, on that port, and is no firewall between?";
}

const char *text_of(const request &reply)
{
    return reply.recv_xml ? reply.recv_xml.get() : "";
}

std::vector<std::string> databases_of(const xmlNode *client)
{
    std::vector<std::string> instances;
    for (const xmlNode *node : xml_children{find_child(client, "DataBaseList")}) {
        if (xml_is_named(node, "DataBase"))
            instances.push_back(report_value(node, "InstanceName"));
    }
    return instances;
}
} // namespace

// --- Asking ------------------------------------------------------------------------------------------

std::unique_ptr<request> host::ask(uint32_t code, const optional_text &body,
                                   const waiting_call &waiting) const
{
    exit_status status = exit_ok;
    std::string error;
    std::unique_ptr<request> reply = try_ask(peer_, code, body, status, error, waiting);
    if (!reply)
        throw verb_end{status, error, hint_for(error, status, is_local())};
    if (reply->recv_head.ret == status_not_adopted)
        end_not_adopted();
    return reply;
}

std::optional<manager_view> host::manager() const
{
    const std::unique_ptr<request> reply = ask(command::local_list);
    require_success(*reply, see_log);
    return manager_in(*reply);
}

void host::require_adopted() const
{
    if (!manager())
        end_not_adopted();
}

std::vector<group_view> host::groups() const
{
    const std::unique_ptr<request> reply = ask(command::kav_get_group);
    require_success(*reply);
    auto groups = groups_of(text_of(*reply));
    if (!groups)
        end_unreadable();
    return *std::move(groups);
}

std::optional<snapshot_times> host::group_schedule(const std::string &name) const
{
    const std::unique_ptr<request> reply =
        ask(command::kav_get_cdp_schedule, snapshot_source_document({true, name}));
    return reply->recv_head.ret == status_ok ? ::schedule_of(text_of(*reply)) : std::nullopt;
}

// The daemon answers for a disk what it knew when it last looked at the mirrors; the report is newer.
std::optional<snapshot_times> host::schedule_of(const snapshot_source &source)
{
    if (source.is_group)
        return group_schedule(source.name);
    const mirror_view *mirror = mirror_of(source.name);
    if (!mirror)
        return std::nullopt;
    for (const mirror_schedule &one : mirror->schedules) {
        if (one.group.empty())
            return one.times;
    }
    return snapshot_times{};
}

const host_view &host::view()
{
    return view_ ? *view_ : look_again();
}

const host_view &host::look_again()
{
    require_adopted();
    const std::unique_ptr<request> reply = ask(command::get_client_info);
    require_success(*reply, see_log);
    const xml_doc doc = xml_parse_text(text_of(*reply));
    const xmlNode *client = report_client(doc);
    auto disks = disks_of(client);
    auto mirrors = mirrors_of(text_of(*reply));
    if (!disks || !mirrors)
        end_unreadable();
    view_ = {*std::move(disks), *std::move(mirrors), databases_of(client)};
    names_.reset();
    return *view_;
}

// --- Finding -----------------------------------------------------------------------------------------

const std::vector<named_disk> &host::names()
{
    if (!names_) {
        const host_view &seen = view();
        names_ = names_of_disks(seen.disks, seen.mirrors, is_local());
        for (const group_view &group : groups())
            add_guids(*names_, group.disks);
    }
    return *names_;
}

named_disk host::disk(const std::string &text, bool may_come)
{
    const std::vector<named_disk> meant = disks_meant(names(), text, is_local());
    if (meant.size() == 1)
        return meant.front();
    if (meant.empty() && may_come && is_guid(text))
        return {text, text};
    if (meant.empty()) {
        std::vector<std::string> known;
        for (const named_disk &one : names())
            known.push_back(one.name);
        throw verb_end{exit_not_found, text + ": there is no such disk" + did_you_mean(text, known),
                       "qelc disks shows the disks of the host, qelc mirrors those that are mirrored"};
    }
    std::string candidates;
    for (const named_disk &one : meant)
        candidates += (candidates.empty() ? "" : ", ") + one.name + " (" + one.guid + ")";
    throw verb_end{exit_refused, text + " may be " + candidates, "type more of the GUID, or a name"};
}

std::vector<verb_item> host::disk_items(const std::vector<std::string> &texts)
{
    std::vector<verb_item> items;
    for (const std::string &text : texts) {
        verb_item item{"disk", text};
        try {
            const named_disk found = disk(text);
            item.name = found.name;
            item.guid = found.guid;
        } catch (const verb_end &end) {
            if (end.status != exit_not_found && end.status != exit_refused)
                throw;
            item.refuse(end.status, end.status == exit_not_found ? "there is no such disk" : end.reason);
        }
        if (item.is_open() && std::ranges::count(items, item.guid, &verb_item::guid) > 0)
            item.refuse(exit_refused, "it is named twice");
        items.push_back(std::move(item));
    }
    return items;
}

const mirror_view *host::mirror_of(const std::string &guid)
{
    const auto &mirrors = view().mirrors;
    const auto found =
        std::ranges::find(mirrors, guid, [](const mirror_view &one) { return one.guids.source; });
    return found == mirrors.end() ? nullptr : &*found;
}

bool host::is_known(const std::string &guid)
{
    return std::ranges::find(names(), guid, &named_disk::guid) != names().end();
}

std::string host::name_of(const std::string &guid)
{
    const auto found = std::ranges::find(names(), guid, &named_disk::guid);
    return found == names().end() ? guid : found->name;
}

const group_view *find_group(const std::vector<group_view> &groups, const std::string &name)
{
    const auto found = std::ranges::find(groups, name, &group_view::name);
    return found == groups.end() ? nullptr : &*found;
}

const group_view &require_group(const std::vector<group_view> &groups, const std::string &name)
{
    if (const group_view *found = find_group(groups, name))
        return *found;
    std::vector<std::string> names;
    for (const group_view &group : groups)
        names.push_back(group.name);
    throw verb_end{exit_not_found, "there is no group " + name + did_you_mean(name, names),
                   "qelc group list shows the groups"};
}

std::optional<manager_view> manager_in(const request &reply)
{
    const xml_doc doc = xml_parse_text(text_of(reply));
    if (!doc)
        end_unreadable();
    const xmlNode *manager = find_child(xml_root(doc), "Manager"),
                  *client = find_child(xml_root(doc), "Client");
    if (!manager)
        return std::nullopt;
    return manager_view{report_value(manager, "GUID"), report_value(manager, "IPs"),
                        client ? report_value(client, "GUID") : ""};
}

void require_success(const request &reply, const std::string &hint)
{
    const uint16_t status = reply.recv_head.ret;
    if (status == status_ok)
        return;
    throw verb_end{exit_refused,
                   status == status_failure ? "the daemon has refused it without a reason"
                                            : meaning_of(status),
                   hint.empty() ? see_log : hint};
}
