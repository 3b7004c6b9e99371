// Verbs for volumes of this host, on which mirrors may lie. They ask no daemon.
#include "tools/qelc/views/volumes.h"

#include "base/log.h"
#include "tools/common/human_text.h"
#include "tools/common/visible.h"
#include "tools/qelc/ask.h"
#include "tools/qelc/verbs/families.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <iostream>

namespace {
void say(const std::string &line)
{
    fprintf(stderr, "qelc: %s\n", visible(line).c_str());
}

// Only root may read what is remembered, and make disks. What the rooms below log goes to the person, too.
bool may_work()
{
    log_to_stderr(LOG_WARNING);
    return geteuid() == 0 || fail(exit_refused, "volumes", "only root can work with them") == exit_ok;
}

int list_volumes(const verb_options & /*given*/, bool json)
{
    const auto volumes = may_work() ? view_volumes() : std::nullopt;
    if (!volumes)
        return exit_refused;
    fputs((json ? volumes_json(*volumes) : volumes_table(*volumes)).c_str(), stdout);
    return exit_ok;
}

int make_volume(const verb_options &given, bool json)
{
    if (!may_work())
        return exit_refused;
    const auto made = create_volume({given.disk, given.where, given.volume, given.yes}, say);
    if (!made)
        return exit_refused;
    if (json)
        fputs(new_volume_json(*made).c_str(), stdout);
    else
        printf("%s  %s  %s\n", made->name.c_str(), made->device.c_str(), made->guid.c_str());
    if (!json && !made->disk_guid.empty())
        printf("qelc protect %s=%s takes it as the mirror\n", visible(made->disk_guid).c_str(),
               made->guid.c_str());
    return exit_ok;
}

// What would be lost, and whether the person wants that.
bool is_confirmed(const std::string &name)
{
    const auto volumes = view_volumes();
    if (!volumes)
        return false;
    const auto found =
        std::ranges::find(*volumes, name, [](const volume_view &view) { return view.volume.name; });
    if (found != volumes->end())
        fprintf(stderr, "%s (%s, %s taken, GUID %s) and everything on it will be lost.\n",
                visible(found->volume.place).c_str(), size_text(found->volume.size).c_str(),
                found->taken ? size_text(*found->taken).c_str() : "nothing", found->volume.guid.c_str());
    fprintf(stderr, "Type the name of the volume (%s) to delete it, or anything else to stop: ",
            visible(name).c_str());
    std::string typed;
    std::getline(std::cin, typed);
    if (typed != name)
        say(name + ": it stays");
    return typed == name;
}

int end_with(bool is_done, bool json)
{
    if (is_done && json)
        fputs(success_json().c_str(), stdout);
    return is_done ? exit_ok : exit_refused;
}

int remove_volume(const verb_options &given, bool json)
{
    if (!may_work())
        return exit_refused;
    if (!given.yes && isatty(STDIN_FILENO) == 0)
        return fail(exit_refused, given.volume, "--yes is required if standard input is not a terminal");
    const bool is_wanted = given.yes || is_confirmed(given.volume);
    return end_with(is_wanted && delete_volume(given.volume, say), json);
}

int show_volumes(const verb_options & /*given*/, bool json)
{
    return end_with(may_work() && attach_volumes(say), json);
}

constexpr verb table[] = {
    {.name = "volumes", .description = "show the volumes of this host", .run_here = list_volumes},
    {.name = "volume create",
     .usage = "--like DISK --in PLACE [--name NAME] [--yes]",
     .description = "make a volume for the mirror of a disk",
     .note = "A volume in a folder or a thin pool takes the room that the mirror has filled.\n",
     .add_options = add_new_volume,
     .run_here = make_volume},
    {.name = "volume delete",
     .usage = "NAME [--yes]",
     .description = "remove a volume, and what is on it",
     .add_options = add_old_volume,
     .run_here = remove_volume},
    {.name = "volume attach",
     .description = "show all volumes as disks, after a start of the host",
     .note = "Volumes that are there already stay as they are.\n",
     .run_here = show_volumes},
};
} // namespace

std::span<const verb> volume_verbs()
{
    return table;
}
