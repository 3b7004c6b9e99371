// Verbs for volumes of this host, on which mirrors may lie. They ask no daemon.
#include "tools/qelc/views/volumes.h"

#include "platform/linux/host/sysfs.h"
#include "tools/common/human_text.h"
#include "tools/common/visible.h"
#include "tools/qelc/confirm.h"
#include "tools/qelc/here.h"
#include "tools/qelc/nearest.h"
#include "tools/qelc/verbs/families.h"
#include "tools/volumes/host_view.h"

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>

namespace {
constexpr char which_there_are[] = "qelc volumes shows the volumes";

std::vector<volume_view> all_volumes()
{
    auto volumes = view_volumes();
    if (!volumes)
        throw verb_end{exit_refused,
                       "the volumes, the disks or the relationships of this host cannot be read",
                       "the lines above say more"};
    return *std::move(volumes);
}

outcome list_volumes(const verb_options & /*given*/)
{
    require_root();
    const std::vector<volume_view> volumes = all_volumes();
    return page_outcome(volumes_table(volumes), volume_records(volumes));
}

// --- A new one -------------------------------------------------------------------------------------------

std::string page_of(const new_volume &made)
{
    std::string page = made.name + "  " + made.device + "  " + made.guid + "\n";
    if (!made.disk_guid.empty())
        page += "qelc protect " + visible(name_of_disk(made.disk_guid)) + "=" + made.guid +
                " takes it as the mirror\n";
    return page;
}

outcome make_volume(const verb_options &given)
{
    require_root();
    std::string why;
    if (!find_disk(given.disk, &why))
        throw verb_end{exit_not_found, given.disk + ": " + why, "qelc disks shows the disks of the host"};
    const auto made =
        create_volume({given.disk, given.where, given.volume, given.yes, given.dry_run}, say, &why);
    if (!made)
        throw verb_end{exit_refused, why,
                       "qelc help volume create says what a place may be; " + std::string(which_there_are)};
    outcome end;
    end.is_dry_run = given.dry_run;
    if (given.dry_run) {
        const std::string name = given.volume.empty() ? "a new name" : made->name;
        end.items.push_back({"volume", name, "", exit_ok, "made in " + given.where});
        return end;
    }
    end.page = page_of(*made);
    end.items.push_back({"volume",
                         made->name,
                         made->guid,
                         exit_ok,
                         "is made",
                         {{"device", made->device}, {"disk_guid", made->disk_guid}}});
    return end;
}

// --- One that goes ---------------------------------------------------------------------------------------

volume_view require_volume(const std::string &name)
{
    std::vector<std::string> names;
    for (const volume_view &one : all_volumes()) {
        if (one.volume.name == name)
            return one;
        names.push_back(one.volume.name);
    }
    throw verb_end{exit_not_found, name + ": there is no such volume" + did_you_mean(name, names),
                   which_there_are};
}

// What would be lost.
void show_loss(const volume_view &view)
{
    const std::string device = view.device ? disk_name_of(*view.device) + ", " : "";
    fprintf(stderr, "%s (%s%s, %s, %s taken) and everything on it will be lost.\n",
            visible(view.volume.name).c_str(), device.c_str(), visible(view.volume.place).c_str(),
            size_text(view.volume.size).c_str(), view.taken ? size_text(*view.taken).c_str() : "nothing");
}

outcome remove_volume(const verb_options &given)
{
    require_root();
    const volume_view view = require_volume(given.volume);
    std::string why = deletion_objection(view.volume);
    verb_item item{"volume", given.volume, view.volume.guid, exit_ok,
                   given.dry_run ? "deleted" : "is deleted"};
    if (why.empty()) {
        show_loss(view);
        if (has_to_ask(given, "what is on it will be lost"))
            require_typed("volume to delete", given.volume);
        if (!given.dry_run)
            why = delete_volume(given.volume, say);
    }
    if (!why.empty())
        item.refuse(exit_refused, why);
    outcome end = outcome_of({item}, which_there_are);
    end.is_dry_run = given.dry_run && why.empty();
    return end;
}

// --- All of them -----------------------------------------------------------------------------------------

outcome plan_to_show()
{
    std::vector<verb_item> items;
    for (const volume_view &view : all_volumes()) {
        if (!view.device)
            items.push_back({"volume", view.volume.name, view.volume.guid, exit_ok, "shown as a disk"});
    }
    outcome end = outcome_of(std::move(items), "");
    end.remark = end.items.empty() ? "dry run: all volumes are there" : "";
    end.is_dry_run = true;
    return end;
}

outcome show_volumes(const verb_options &given)
{
    require_root();
    if (given.dry_run)
        return plan_to_show();
    std::string why;
    const auto all = attach_volumes(say, &why);
    if (!all)
        throw verb_end{exit_refused, why, "the lines above say more"};
    std::vector<verb_item> items;
    for (const volume_device &one : *all) {
        verb_item item{"volume", one.name, "", exit_ok,
                       (one.is_new ? "is shown as " : "was there as ") + one.device};
        if (!one.fault.empty())
            item.refuse(exit_refused, one.fault);
        else
            item.more = {{"device", one.device}};
        items.push_back(std::move(item));
    }
    outcome end = outcome_of(std::move(items), which_there_are);
    end.remark = end.items.empty() ? "no volumes" : "";
    return end;
}

constexpr verb table[] = {
    {.name = "volumes",
     .description = "show the volumes of this host",
     .act_here = list_volumes,
     .only_shows = true},
    {.name = "volume create",
     .usage = "--like DISK --in PLACE [--name NAME] [--yes] [--dry-run]",
     .description = "make a volume for the mirror of a disk",
     .note = "A volume in a folder or a thin pool takes the room that the mirror has filled.\n",
     .add_options = add_new_volume,
     .act_here = make_volume},
    {.name = "volume delete",
     .usage = "NAME [--yes] [--dry-run]",
     .description = "remove a volume, and what is on it",
     .add_options = add_old_volume,
     .act_here = remove_volume},
    {.name = "volume attach",
     .usage = "[--dry-run]",
     .description = "show all volumes as disks, after a start of the host",
     .note = "Volumes that are there already stay as they are.\n",
     .add_options = add_consent,
     .act_here = show_volumes},
};
} // namespace

std::span<const verb> volume_verbs()
{
    return table;
}
