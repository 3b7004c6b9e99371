#include "tools/verbs.h"

#include "tools/database_bodies.h"
#include "tools/disks.h"
#include "tools/exchange.h"
#include "tools/group_bodies.h"
#include "tools/groups.h"
#include "tools/mirrors.h"
#include "tools/points_in_time.h"
#include "tools/schedules.h"
#include "tools/snapshot_bodies.h"

#include <CLI/CLI.hpp>
#include <algorithm>

namespace {
// --- Bodies ------------------------------------------------------------------------------------------

snapshot_times times_of(const verb_options &given)
{
    return {parse_point_in_time(given.start).value_or(0), given.every};
}

snapshot_source source_of(const verb_options &given, const std::string &disk)
{
    return given.group.empty() ? snapshot_source{false, disk} : snapshot_source{true, given.group};
}

optional_text no_body(const verb_options & /*given*/)
{
    return std::nullopt;
}

optional_text protect_body(const verb_options &given)
{
    std::vector<mirror_pair> pairs;
    for (const std::string &word : given.words) {
        const size_t sign = word.find('=');
        pairs.push_back({word.substr(0, sign), word.substr(sign + 1)});
    }
    return protection_document(pairs, source_of(given, pairs.back().source), times_of(given));
}

optional_text sources_body(const verb_options &given)
{
    return disk_list_document(given.words);
}

optional_text schedule_body(const verb_options &given)
{
    return schedule_document(source_of(given, given.disk), times_of(given));
}

optional_text source_body(const verb_options &given)
{
    return snapshot_source_document(source_of(given, given.disk));
}

optional_text snapshot_body(const verb_options &given)
{
    return snapshot_document(source_of(given, given.disk));
}

optional_text volumes_body(const verb_options &given)
{
    return snapshot_volumes_document(given.words);
}

optional_text members_body(const verb_options &given)
{
    return group_document(given.words.front(), std::span(given.words).subspan(1));
}

optional_text member_body(const verb_options &given)
{
    return group_member_document(given.words.front(), given.words.back());
}

optional_text group_end_body(const verb_options &given)
{
    return group_end_document(given.words.front());
}

optional_text database_body(const verb_options &given)
{
    return database_document(
        {given.instance, given.user, given.password, given.oracle_home, given.archive_log});
}

optional_text database_end_body(const verb_options &given)
{
    return database_end_document(given.instance);
}

// --- Waiting -----------------------------------------------------------------------------------------

unsigned seconds_for_disks(const verb_options &given)
{
    constexpr unsigned disk_seconds = 60;
    return static_cast<unsigned>(given.words.size()) * disk_seconds;
}

// Forty are sleep, however many volumes there are; the others are for ten searches on a host with many disks.
unsigned seconds_for_volumes(const verb_options & /*given*/)
{
    return 300;
}

// --- The table ---------------------------------------------------------------------------------------

constexpr char protected_note[] = "SRC is the GUID of a protected disk.\n";
constexpr char member_note[] = "GUID is that of a disk of the host.\n";
constexpr char source_usage[] = "(--disk GUID | --group NAME)";

constexpr verb verbs[] = {
    {.name = "disks",
     .usage = "",
     .description = "show the disks and their GUIDs",
     .code = command_code("get_client_info"),
     .body = no_body,
     .view = disks_page,
     .json = disks_json},
    {.name = "protect",
     .usage = "SRC=MIRROR... [--group NAME] [--start T --every SECONDS]",
     .description = "put disks under protection, each with its mirror",
     .note = "SRC is the GUID of a disk of the host, MIRROR that of the mirror. The host may take most of a\n"
             "minute for each; without --timeout, qelc waits as long as that takes. Without --group, a\n"
             "schedule goes with one disk.\n",
     .code = command_code("add_backup"),
     .add_options = add_protect_options,
     .complaint = protect_complaint,
     .body = protect_body,
     .seconds = seconds_for_disks},
    {.name = "unprotect",
     .usage = "SRC...",
     .description = "take disks out of protection",
     .note = protected_note,
     .code = command_code("del_backup"),
     .add_options = add_words,
     .complaint = sources_complaint,
     .body = sources_body,
     .seconds = seconds_for_disks},
    {.name = "resync",
     .usage = "SRC...",
     .description = "synchronise the mirrors of disks from the start",
     .note = protected_note,
     .code = command_code("init_mirror"),
     .add_options = add_words,
     .complaint = sources_complaint,
     .body = sources_body,
     .seconds = seconds_for_disks},
    {.name = "cancel-resync",
     .usage = "SRC...",
     .description = "stop the synchronisation of mirrors",
     .note = protected_note,
     .code = command_code("cancel_init_mirror"),
     .add_options = add_words,
     .complaint = sources_complaint,
     .body = sources_body,
     .seconds = seconds_for_disks},
    {.name = "mirrors",
     .usage = "[--watch [SECONDS]]",
     .description = "show the mirrors and how far they are",
     .code = command_code("get_client_info"),
     .add_options = add_mirrors_options,
     .body = no_body,
     .view = mirrors_page,
     .json = mirrors_json},
    {.name = "snapshot",
     .usage = source_usage,
     .description = "take a snapshot of a disk or a group now",
     .note = "The host answers success for a group that it does not know; qelc group list shows which it "
             "knows.\n",
     .code = command_code("create_snapshot"),
     .add_options = add_source_options,
     .complaint = source_complaint,
     .body = snapshot_body},
    {.name = "restore-wait",
     .usage = "GUID...",
     .description = "wait for restored snapshot volumes",
     .note = "GUID is that of a volume that the host is to see. The host waits for about 40 seconds.\n",
     .code = command_code("snap_restore"),
     .add_options = add_words,
     .complaint = volumes_complaint,
     .body = volumes_body,
     .seconds = seconds_for_volumes},
    {.name = "schedule set",
     .usage = "(--disk GUID | --group NAME) (--start T --every SECONDS | --off)",
     .description = "say when snapshots of a disk or a group are taken",
     .code = command_code("set_cdp_schedule"),
     .add_options = add_schedule_options,
     .complaint = schedule_complaint,
     .body = schedule_body},
    {.name = "schedule get",
     .usage = source_usage,
     .description = "show when snapshots of a disk or a group are taken",
     .code = command_code("kav_get_cdp_schedule"),
     .add_options = add_source_options,
     .complaint = source_complaint,
     .body = source_body,
     .view = schedule_page,
     .json = schedule_json},
    // Not kav_del_cdp_schedule: for a disk without a schedule, that one would stop the daemon's record for
    // good.
    {.name = "schedule delete",
     .usage = source_usage,
     .description = "take no more snapshots of a disk or a group",
     .code = command_code("set_cdp_schedule"),
     .add_options = add_source_options,
     .complaint = source_complaint,
     .body = schedule_body},
    {.name = "group create",
     .usage = "NAME [GUID...]",
     .description = "make a consistency group, with disks or without",
     .note = member_note,
     .code = command_code("bg_create"),
     .add_options = add_words,
     .complaint = group_complaint,
     .body = members_body},
    {.name = "group add",
     .usage = "NAME GUID...",
     .description = "add disks, which give up their own schedules",
     .note = "GUID is that of a disk of the host; it loses its schedule even when there is no such group.\n",
     .code = command_code("add_disk_to_grp"),
     .add_options = add_words,
     .complaint = new_members_complaint,
     .body = members_body},
    {.name = "group remove",
     .usage = "NAME GUID",
     .description = "take a disk out, which keeps the group's schedule",
     .note = "GUID is that of a disk of the group. Another protected disk stays where it is, and gets the\n"
             "group's schedule all the same.\n",
     .code = command_code("rem_disk_from_bg"),
     .add_options = add_words,
     .complaint = old_member_complaint,
     .body = member_body},
    {.name = "group delete",
     .usage = "NAME",
     .description = "delete a group and its schedule; the disks stay protected",
     .code = command_code("del_backup_grp"),
     .add_options = add_words,
     .complaint = group_name_complaint,
     .body = group_end_body},
    {.name = "group list",
     .usage = "",
     .description = "show the groups and their disks",
     .code = command_code("kav_get_group"),
     .body = no_body,
     .view = groups_page,
     .json = groups_json},
    {.name = "db set",
     .usage = "--instance NAME [--user NAME [--password-file PATH]] [--oracle-home DIR] [--archive-log]",
     .description = "register an Oracle database of the host",
     .note = "With --print-body, asterisks stand for the password, and nobody is asked for it.\n",
     .code = command_code("db_set"),
     .add_options = add_database_options,
     .body = database_body},
    {.name = "db delete",
     .usage = "--instance NAME",
     .description = "forget a database of the host",
     .code = command_code("dbcfg_del"),
     .add_options = add_instance,
     .body = database_end_body},
};

// The first words of the verbs with two.
constexpr struct {
    const char *name;
    const char *description;
} kinds[] = {
    {"schedule", "when snapshots are taken"},
    {"group", "consistency groups"},
    {"db", "databases"},
};

CLI::App &add_subcommand(CLI::App &app, const std::string &name, const char *description)
{
    return *app.add_subcommand(name, description)->group("Verbs")->fallthrough();
}

// Adds the verbs whose names are FRONT and one word.
void add_verbs_of(CLI::App &app, const std::string &front, verb_options &given)
{
    for (const verb &one : verbs) {
        const std::string name = one.name;
        if (name.starts_with(front) && name.find(' ', front.size()) == std::string::npos)
            one.add_options(add_subcommand(app, name.substr(front.size()), one.description), given);
    }
}
} // namespace

void add_verbs(CLI::App &app, verb_options &given)
{
    app.require_subcommand(0, 1);
    add_verbs_of(app, "", given);
    for (const auto &kind : kinds) {
        CLI::App &subcommand = add_subcommand(app, kind.name, kind.description);
        subcommand.require_subcommand(1);
        add_verbs_of(subcommand, kind.name + std::string(" "), given);
    }
}

std::string full_name_of(const CLI::App &app)
{
    if (!app.get_parent())
        return "";
    const std::string above = full_name_of(*app.get_parent());
    return (above.empty() ? "" : above + " ") + app.get_name();
}

const verb *verb_of(const CLI::App &app)
{
    const std::string name = full_name_of(app);
    const auto *found = std::ranges::find(verbs, name, &verb::name);
    return found == std::end(verbs) ? nullptr : found;
}

const CLI::App &parsed_app(const CLI::App &app)
{
    const std::vector<CLI::App *> subcommands = app.get_subcommands();
    return subcommands.empty() ? app : parsed_app(*subcommands.front());
}
