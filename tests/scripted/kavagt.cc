// libkavagt as a script has it.
#include "tests/scripted/script_fields.h"
#include "tests/scripted/script_folder.h"

#include <kavagt.h>

namespace {
// The fields of a record as the words of a call.
struct field_words {
    std::vector<std::string> &words;
    void operator()(const char *, const char *text) const { words.push_back(script_word(text)); }
    void operator()(const char *, std::integral auto number) const
    {
        words.push_back(std::to_string(number));
    }
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
    std::vector<std::string> words{script_word(app->instance_name)};
    app_fields(*app, field_words{words});
    return words;
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
        } else if (app) {
            app_fields(*app, field_reader{entry});
        }
    }
    return 0;
}

int Kav_delete_dev(int flag, const char *mirror_guid)
{
    return script_action("Kav_delete_dev", {std::to_string(flag), script_word(mirror_guid)}, 0);
}
