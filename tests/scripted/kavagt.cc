// libkavagt as a script has it.
#include "tests/scripted/script_folder.h"

#include <kavagt.h>

namespace {
const script_field app_fields[] = {
    SCRIPT_FIELD(number, Kavapp, db_type), SCRIPT_FIELD(number, Kavapp, archive_log),
    SCRIPT_FIELD(text, Kavapp, db_name),   SCRIPT_FIELD(text, Kavapp, db_user),
    SCRIPT_FIELD(text, Kavapp, db_passwd), SCRIPT_FIELD(text, Kavapp, oracle_home),
    SCRIPT_FIELD(text, Kavapp, host),      SCRIPT_FIELD(text, Kavapp, port),
};

const script_field device_fields[] = {
    SCRIPT_FIELD(characters, Kavdev, guid),
    SCRIPT_FIELD(text, Kavdev, path),
    SCRIPT_FIELD(number, Kavdev, flag),
};

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
        } else {
            script_set(app, app_fields, "apps", entry);
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
            script_set(device, device_fields, "devices", {"guid", entry.value, entry.line});
            kav_list_append(devs, &device->link);
        } else {
            script_set(device, device_fields, "devices", entry);
        }
    }
    return 0;
}

int Kav_delete_dev(int flag, const char *mirror_guid)
{
    return script_action("Kav_delete_dev", {std::to_string(flag), script_word(mirror_guid)}, 0);
}
