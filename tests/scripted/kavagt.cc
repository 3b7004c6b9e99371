// libkavagt as a script has it.
#include "tests/scripted/script_folder.h"

#include <kavagt.h>

#include <cstring>

namespace {
bool set_app_field(Kavapp *app, const script_entry &entry)
{
    struct {
        const char *key;
        char *&field;
    } texts[] = {{"db_name", app->db_name},         {"db_user", app->db_user}, {"db_passwd", app->db_passwd},
                 {"oracle_home", app->oracle_home}, {"host", app->host},       {"port", app->port}};
    for (auto &text : texts) {
        if (entry.key == text.key) {
            text.field = script_copy(entry.value);
            return true;
        }
    }
    if (entry.key == "db_type")
        app->db_type = static_cast<uint32_t>(script_number(entry));
    else if (entry.key == "archive_log")
        app->archive_log = static_cast<int32_t>(script_number(entry));
    else
        return false;
    return true;
}

bool set_device_field(Kavdev *device, const script_entry &entry)
{
    if (entry.key == "path")
        device->path = script_copy(entry.value);
    else if (entry.key == "flag")
        device->flag = static_cast<uint8_t>(script_number(entry));
    else
        return false;
    return true;
}

void set_guid(Kavdev *device, const script_entry &entry)
{
    const std::string guid = entry.value.value_or("");
    if (guid.size() >= sizeof device->guid)
        script_unknown("devices", entry);
    else
        memcpy(device->guid, guid.c_str(), guid.size() + 1);
}

// The group's name, and then "{GUID}:FLAG:PATH" of each device.
std::vector<std::string> group_words(const Kavdevgrp *group)
{
    if (!group)
        return {script_word(nullptr)};
    std::vector<std::string> words{script_word(group->name)};
    for (const kav_list *link = group->devices.next; link != &group->devices; link = link->next) {
        const auto *device = kav_list_entry(link, const Kavdev, link);
        words.push_back(script_word(device->guid) + ":" + std::to_string(device->flag) + ":" +
                        script_word(device->path));
    }
    return words;
}

std::vector<std::string> app_words(const Kavapp *app)
{
    if (!app)
        return {script_word(nullptr)};
    return {script_word(app->instance_name), std::to_string(app->db_type), std::to_string(app->archive_log),
            script_word(app->db_name),       script_word(app->db_user),    script_word(app->db_passwd),
            script_word(app->oracle_home),   script_word(app->host),       script_word(app->port)};
}
} // namespace

#pragma GCC visibility push(default)

int kav_call_disk_markcdp(const char *mirror)
{
    return script_action("kav_call_disk_markcdp", {script_word(mirror)}, -1);
}

int kav_call_grp_markcdp(Kavdevgrp *group)
{
    return script_action("kav_call_grp_markcdp", group_words(group), -1);
}

int Kav_connect_db_flush_cfg(Kavapp *app)
{
    return script_action("Kav_connect_db_flush_cfg", app_words(app), -1);
}

int Kav_delete_app(const char *instance_name)
{
    return script_action("Kav_delete_app", {script_word(instance_name)}, 0);
}

int Kav_list_app(kav_list *apps)
{
    const int result = script_query("Kav_list_app", {}, 0);
    if (result != 0)
        return result;
    Kavapp *app = nullptr;
    for (const script_entry &entry : script_read("apps")) {
        if (entry.key == "app") {
            app = script_new<Kavapp>();
            app->instance_name = script_copy(entry.value);
            kav_list_append(apps, &app->link);
        } else if (!app || !set_app_field(app, entry)) {
            script_unknown("apps", entry);
        }
    }
    return 0;
}

int Kav_list_dev(kav_list *devs)
{
    const int result = script_query("Kav_list_dev", {}, 0);
    if (result != 0)
        return result;
    Kavdev *device = nullptr;
    for (const script_entry &entry : script_read("devices")) {
        if (entry.key == "device") {
            device = script_new<Kavdev>();
            set_guid(device, entry);
            kav_list_append(devs, &device->link);
        } else if (!device || !set_device_field(device, entry)) {
            script_unknown("devices", entry);
        }
    }
    return 0;
}

int Kav_delete_dev(int flag, const char *mirror_guid)
{
    return script_action("Kav_delete_dev", {std::to_string(flag), script_word(mirror_guid)}, 0);
}
