// libkavdisk as a script has it.
#include "tests/scripted/script_fields.h"
#include "tests/scripted/script_folder.h"

#include <kavdisk.h>

#include <cstdlib>
#include <initializer_list>

namespace {
void free_parts(kav_list *parts)
{
    while (!kav_list_empty(parts)) {
        auto *part = kav_list_entry(parts->next, kavdisk_part, link);
        kav_list_unlink(&part->link);
        for (void *memory : std::initializer_list<void *>{part->name, part->guid, part->fs, part})
            free(memory);
    }
}

void append_disks(kav_list *devs)
{
    kavdisk_dev *disk = nullptr;
    kavdisk_part *part = nullptr;
    for (const script_entry &entry : script_read("disks")) {
        if (entry.key == "disk") {
            disk = script_new<kavdisk_dev>();
            disk->name = script_copy(entry.value);
            kav_list_init(&disk->parts);
            kav_list_append(devs, &disk->link);
            part = nullptr;
        } else if (disk && entry.key == "partition") {
            part = script_new<kavdisk_part>();
            part->name = script_copy(entry.value);
            kav_list_append(&disk->parts, &part->link);
        } else if (part) {
            partition_fields(*part, field_reader{entry});
        } else if (disk) {
            disk_fields(*disk, field_reader{entry});
        }
    }
}
} // namespace

#pragma GCC visibility push(default)

int kavdisk_get_devs(kav_list *devs, int flag)
{
    const int result = script_query("kavdisk_get_devs", {std::to_string(flag)}, 0);
    if (result != 0)
        return result;
    append_disks(devs);
    for (kav_list *link = devs->next; flag == 0 && link != devs; link = link->next)
        free_parts(&kav_list_entry(link, kavdisk_dev, link)->parts);
    return 0;
}

void kavdisk_free_devs(kav_list *devs)
{
    script_query("kavdisk_free_devs", {}, 0);
    while (!kav_list_empty(devs)) {
        auto *disk = kav_list_entry(devs->next, kavdisk_dev, link);
        kav_list_unlink(&disk->link);
        free_parts(&disk->parts);
        for (void *memory :
             std::initializer_list<void *>{disk->name, disk->vendor, disk->model, disk->path, disk})
            free(memory);
    }
}

int kavdisk_rescan_dev(int flag)
{
    return script_action("kavdisk_rescan_dev", {std::to_string(flag)}, 0);
}

uint32_t get_part_type(const char *path)
{
    const std::string word = script_word(path);
    int type = 0;
    for (const script_entry &entry : script_read("part-types")) {
        if (entry.key == word)
            type = atoi(entry.value.value_or("0").c_str());
    }
    return static_cast<uint32_t>(script_query("get_part_type", {word}, type));
}
