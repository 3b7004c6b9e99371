#include "kavagt.h"

#include "platform/linux/agent/apps.h"
#include "platform/linux/agent/connect.h"
#include "platform/linux/agent/devices.h"
#include "platform/linux/agent/mark.h"
#include "platform/linux/host/boundary.h"
#include "platform/linux/state/text.h"

#include <algorithm>
#include <cstring>

#define EXPORTED extern "C" __attribute__((visibility("default")))

// The embedded agent of a plain Linux host. Snapshots are kept by keepers and the site's hooks.

namespace {

std::string shown(const char *text)
{
    return text ? escaped(text) : "(none)";
}

// The text between the braces; empty if there are no braces or the text is too long for a GUID.
std::string without_braces(std::string_view text)
{
    if (text.size() < 2 || text.front() != '{' || text.back() != '}' || text.size() - 2 > longest_guid)
        return "";
    return std::string(text.substr(1, text.size() - 2));
}

// The GUIDs of the group's devices without duplicates: a mirror may be listed with several paths. False after
// a log line.
bool read_group(const Kavdevgrp &group, std::vector<std::string> *guids)
{
    const kav_list *head = &group.devices;
    for (const kav_list *link = head->next; link && link != head; link = link->next) {
        const auto *device = kav_list_entry(link, const Kavdev, link);
        const std::string braced(device->guid, strnlen(device->guid, sizeof device->guid));
        const std::string guid = without_braces(braced);
        if (guid.empty()) {
            log_error("Cannot mark group %s: %s is no GUID in braces", shown(group.name).c_str(),
                      escaped(braced).c_str());
            return false;
        }
        if (std::find(guids->begin(), guids->end(), guid) == guids->end())
            guids->push_back(guid);
    }
    return true;
}

template <class Record>
int hand_over(bool loaded, std::vector<Record> &records, kav_list *list)
{
    for (Record &record : records) {
        if (loaded)
            kav_list_append(list, &record.release()->link);
    }
    return loaded ? 0 : -1;
}

int mark_disk(const char *mirror)
{
    const std::string guid = without_braces(mirror ? mirror : "");
    if (guid.empty()) {
        log_error("Cannot mark mirror %s: this is no GUID in braces", shown(mirror).c_str());
        return -1;
    }
    return mark_mirrors({"", {guid}});
}

int mark_group(const Kavdevgrp *group)
{
    mark_order order;
    if (!group || !group->name || !*group->name) {
        log_error("Cannot mark a group without a name");
        return -1;
    }
    if (!read_group(*group, &order.guids))
        return -1;
    // None of its mirrors is a disk of this host, so no snapshot can be taken.
    if (order.guids.empty()) {
        log_error("Cannot mark group %s: it has no device", shown(group->name).c_str());
        return -1;
    }
    order.group = group->name;
    return mark_mirrors(order);
}

int connect_and_keep(const Kavapp *app)
{
    if (!app || !app->instance_name || !*app->instance_name || !app->host || !app->port) {
        log_error("Cannot connect to database instance %s: the name, the host or the port is missing",
                  shown(app ? app->instance_name : nullptr).c_str());
        return -1;
    }
    std::string why;
    if (!can_connect(app->host, app->port, &why)) {
        log_error("Cannot connect to database instance %s at %s port %s: %s",
                  shown(app->instance_name).c_str(), shown(app->host).c_str(), shown(app->port).c_str(),
                  why.c_str());
        return -1;
    }
    return keep_app(*app) ? 0 : -1;
}

int delete_app(const char *instance_name)
{
    const int result = instance_name ? forget_app(instance_name) : -1;
    if (result == 0 || !instance_name)
        log_error("Cannot delete database instance %s: there is none", shown(instance_name).c_str());
    return result;
}

int delete_dev(const char *mirror_guid)
{
    if (!mirror_guid) {
        log_error("Cannot forget a mirror without a GUID");
        return -1;
    }
    const std::string guid = without_braces(mirror_guid);
    return forget_device(guid.empty() ? mirror_guid : guid);
}

} // namespace

EXPORTED int kav_call_disk_markcdp(const char *mirror)
{
    return result_of(__func__, -1, [&] { return mark_disk(mirror); });
}

EXPORTED int kav_call_grp_markcdp(Kavdevgrp *group)
{
    return result_of(__func__, -1, [&] { return mark_group(group); });
}

EXPORTED int Kav_connect_db_flush_cfg(Kavapp *app)
{
    return result_of(__func__, -1, [&] { return connect_and_keep(app); });
}

EXPORTED int Kav_delete_app(const char *instance_name)
{
    return result_of(__func__, -1, [&] { return delete_app(instance_name); });
}

EXPORTED int Kav_list_app(kav_list *apps)
{
    return result_of(__func__, -1, [&] {
        std::vector<app_record> records;
        return apps ? hand_over(load_apps(&records), records, apps) : -1;
    });
}

EXPORTED int Kav_list_dev(kav_list *devs)
{
    return result_of(__func__, -1, [&] {
        std::vector<device_record> records;
        return devs ? hand_over(load_devices(&records), records, devs) : -1;
    });
}

// The daemon calls this for every mirror that it releases, also for one that was never marked; that is not an
// error.
EXPORTED int Kav_delete_dev(int /*flag*/, const char *mirror_guid)
{
    return result_of(__func__, -1, [&] { return delete_dev(mirror_guid); });
}
