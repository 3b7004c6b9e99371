#include "tools/qelc/subcommand_options.h"

#include "config/config.h"
#include "tools/common/exchange.h"
#include "tools/qelc/points_in_time.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>

namespace {
// --- Values: each returns what is wrong, "" for nothing ----------------------------------------------

std::string check_point_in_time(const std::string &text)
{
    return parse_point_in_time(text) ? "" : text + " is not a time: " + point_in_time_forms;
}

std::string check_seconds(const std::string &text)
{
    uint32_t seconds = 0;
    const char *last = text.data() + text.size();
    const auto [end, failure] = std::from_chars(text.data(), last, seconds);
    const bool fits = failure == std::errc() && end == last && seconds > 0;
    return fits ? "" : text + " is not a number of seconds";
}

std::string check_interval(const std::string &text)
{
    return parse_interval(text) ? "" : text + " is not an interval: " + interval_forms;
}

std::string check_partition(const std::string &text)
{
    const bool fits = !text.empty() && text.size() < 5 && text.find_first_not_of("0123456789") == text.npos;
    return fits ? "" : text + " is not a number of a partition";
}

std::string check_not_empty(const std::string &text)
{
    return text.empty() ? "must not be empty" : "";
}

std::string check_pair(const std::string &text)
{
    const size_t sign = text.find('=');
    const bool fits = sign != std::string::npos && sign > 0 && sign + 1 < text.size();
    return fits ? "" : text + " is not SRC=MIRROR";
}

std::string check_portal(const std::string &text)
{
    constexpr uint16_t iscsi_port = 3260;
    const std::optional<endpoint> portal = parse_endpoint(text, iscsi_port);
    return portal && is_address(portal->host) ? "" : text + " is not ADDR[:PORT]";
}

// "5min" or "5min,1h": from when on it is a warning, and critical.
std::string take_limits(const std::string &text, uint32_t &warning, uint32_t &critical)
{
    const size_t comma = std::min(text.find(','), text.size());
    const auto first = parse_interval(text.substr(0, comma));
    const auto second =
        comma < text.size() ? parse_interval(text.substr(comma + 1)) : std::optional<uint32_t>(0);
    if (!first || !second)
        return text + " is not an interval, or two with a comma between: " + interval_forms;
    warning = *first;
    critical = *second;
    return "";
}

// --- Options of several subcommands ------------------------------------------------------------------

CLI::Option *add_group(CLI::App &app, verb_options &given, const char *description)
{
    return app.add_option("--group", given.group, description)->type_name("NAME")->check(check_not_empty);
}

void add_times(CLI::App &app, verb_options &given)
{
    auto *start = app.add_option("--start", given.start, "time of the first snapshot");
    start->type_name("T")->check(check_point_in_time);
    const auto take = [&given](const std::string &text) { given.every = parse_interval(text).value_or(0); };
    auto *every = app.add_option_function<std::string>("--every", take, "from one snapshot to the next");
    every->type_name("INTERVAL")->check(check_interval)->needs(start);
    start->needs(every);
    app.footer(std::string("T is a time: ") + point_in_time_forms + ".\nINTERVAL is " + interval_forms +
               ".\n");
}

void add_limit(CLI::App &app, verb_options &given, const char *description)
{
    const auto take = [&given](const std::string &text) { given.limit = parse_interval(text).value_or(0); };
    app.add_option_function<std::string>("--timeout", take, description)
        ->type_name("INTERVAL")
        ->check(check_interval);
}

CLI::Option *add_place(CLI::App &app, verb_options &given)
{
    auto *place =
        app.add_option("--in", given.where, "a folder, a volume group (VG) or a thin pool (VG/POOL)");
    return place->type_name("PLACE")->check(check_not_empty);
}

CLI::Option *add_volume_name(CLI::App &app, verb_options &given)
{
    auto *name =
        app.add_option("--name", given.volume, "name of the volume; without it, one is made from its GUID");
    return name->type_name("NAME")->check(check_not_empty);
}

// The last words of a verb, as many as there are.
CLI::Option *add_disks(CLI::App &app, verb_options &given, const char *name, const char *description)
{
    return app.add_option(name, given.disks, description)->type_name("")->check(check_not_empty);
}

CLI::Option *add_text(CLI::App &app, const char *name, std::string &text, const char *type,
                      const char *description)
{
    return app.add_option(name, text, description)->type_name(type)->required();
}
} // namespace

// --- Of verbs ----------------------------------------------------------------------------------------

void add_no_options(CLI::App & /*app*/, verb_options & /*given*/) {}

void add_consent(CLI::App &app, verb_options &given)
{
    app.add_flag("--yes", given.yes, "do not ask");
    app.add_flag("--dry-run", given.dry_run, "say what would be done, and change nothing");
}

void add_pairs(CLI::App &app, verb_options &given)
{
    app.add_option("PAIR", given.disks, "a disk of the host, and its mirror")
        ->type_name("SRC=MIRROR")
        ->check(check_pair)
        ->required();
    auto *group = add_group(app, given,
                            "put the disks into this group, roll all back if one\n"
                            "fails, and give the schedule to the group");
    app.add_flag("--no-create", given.no_create, "fail if there is no such group")->needs(group);
    add_times(app, given);
    add_consent(app, given);
}

void add_sources(CLI::App &app, verb_options &given)
{
    add_disks(app, given, "SRC", "a protected disk: a name, a path, or the beginning of a GUID")->required();
    add_consent(app, given);
}

void add_mirrors_options(CLI::App &app, verb_options &given)
{
    app.add_option("--watch", given.watch,
                   "show what is copied until nothing is any more; asks\n"
                   "the host again after SECONDS (2)")
        ->option_text("[SECONDS]")
        ->expected(0, 1)
        ->default_str("2")
        ->check(check_seconds)
        ->excludes(app.get_parent()->get_option("--raw"))
        ->excludes(app.get_parent()->get_option("--json"));
    app.add_flag("--wait", given.wait, "the same without drawing");
    add_limit(app, given, "how long to wait or to watch; without it, to the end");
    add_disks(app, given, "DISK", "only the mirrors of these disks");
}

void add_disks_options(CLI::App &app, verb_options &given)
{
    app.add_flag("--all", given.all, "also the disks of this host that are left out, and why");
}

void add_one_mirror(CLI::App &app, verb_options &given)
{
    const auto add_disk = [&app](const char *name, std::string &disk, const char *description) {
        return app.add_option(name, disk, description)->type_name("")->check(check_not_empty);
    };
    add_disk("SRC", given.disk, "a disk of the host: a name, a path, or the beginning of a GUID")->required();
    auto *mirror = add_disk("MIRROR", given.mirror, "the disk that is overwritten with it");
    auto *place = add_place(app, given)->excludes(mirror);
    add_volume_name(app, given)->needs(place);
    add_limit(app, given, "how long to wait until it is level; without it, to the end");
    add_consent(app, given);
    app.get_option("--yes")->description("do not ask; take a place that is lost at the next start");
}

void add_volumes(CLI::App &app, verb_options &given)
{
    add_disks(app, given, "GUID", "GUID of a volume that the host is to see")->required();
}

void add_disk_or_group(CLI::App &app, verb_options &given)
{
    auto *disk = app.add_option("--disk", given.disk, "a protected disk");
    disk->type_name("DISK")->check(check_not_empty);
    add_group(app, given, "a consistency group")->excludes(disk);
}

void add_disk_or_group_to_change(CLI::App &app, verb_options &given)
{
    add_disk_or_group(app, given);
    add_consent(app, given);
}

void add_snapshot_options(CLI::App &app, verb_options &given)
{
    add_disk_or_group_to_change(app, given);
    app.add_option("--note", given.note, "what the list of snapshots says of it")->type_name("TEXT");
}

void add_names_to_change(CLI::App &app, verb_options &given)
{
    add_consent(app, given);
    app.add_option("NAME", given.snapshots, "name of a snapshot")
        ->type_name("")
        ->check(check_not_empty)
        ->required();
}

void add_snapshot_name(CLI::App &app, verb_options &given)
{
    add_names_to_change(app, given);
    app.get_option("NAME")->expected(1)->allow_extra_args(false);
}

void add_attach_options(CLI::App &app, verb_options &given)
{
    add_snapshot_name(app, given);
    app.add_option("--partition", given.partition, "only this partition of the disk")
        ->type_name("N")
        ->check(check_partition);
}

void add_mount_options(CLI::App &app, verb_options &given)
{
    add_attach_options(app, given);
    app.add_option("DIR", given.folder, "an empty folder")->type_name("")->check(check_not_empty)->required();
}

void add_restore_options(CLI::App &app, verb_options &given)
{
    add_snapshot_name(app, given);
    app.add_option("--to", given.restore_to,
                   "the disk that is overwritten: a name, a path or\n"
                   "a GUID; without it, the disk of the snapshot")
        ->type_name("DISK")
        ->check(check_not_empty);
    app.add_flag("--no-snapshot", given.no_snapshot, "take no snapshot of the present state first");
}

void add_schedule_options(CLI::App &app, verb_options &given)
{
    add_disk_or_group_to_change(app, given);
    add_times(app, given);
    app.add_flag("--off", given.off, "take no more snapshots")
        ->excludes(app.get_option("--start"))
        ->excludes(app.get_option("--every"));
}

void add_group_name(CLI::App &app, verb_options &given)
{
    app.add_option("NAME", given.group, "name of the group")
        ->type_name("")
        ->check(check_not_empty)
        ->required();
    add_consent(app, given);
}

void add_group_and_any_disks(CLI::App &app, verb_options &given)
{
    add_group_name(app, given);
    add_disks(app, given, "DISK", "a disk of the host: a name, a path, or the beginning of a GUID");
}

void add_group_and_disks(CLI::App &app, verb_options &given)
{
    add_group_name(app, given);
    add_disks(app, given, "DISK", "a disk of the host: a name, a path, or the beginning of a GUID")
        ->required();
}

void add_group_and_disk(CLI::App &app, verb_options &given)
{
    add_group_name(app, given);
    app.add_option("DISK", given.disk, "a disk of the group: a name, a path, or the beginning of a GUID")
        ->type_name("")
        ->check(check_not_empty)
        ->required();
}

void add_instance(CLI::App &app, verb_options &given)
{
    add_text(app, "--instance", given.instance, "NAME", "name of the database instance")
        ->check(check_not_empty);
    add_consent(app, given);
}

void add_database_options(CLI::App &app, verb_options &given)
{
    add_instance(app, given);
    auto *user = app.add_option("--user", given.user, "user who connects to it, with a password");
    user->type_name("NAME")->check(check_not_empty);
    app.add_option("--password-file", given.password_file,
                   "file whose first line is the password, - for\n"
                   "standard input; without it, the terminal is asked")
        ->type_name("PATH")
        ->check(check_not_empty)
        ->needs(user);
    app.add_option("--oracle-home", given.oracle_home, "folder of the Oracle installation")->type_name("DIR");
    app.add_flag("--archive-log", given.archive_log, "the database keeps archive logs");
}

void add_new_volume(CLI::App &app, verb_options &given)
{
    add_text(app, "--like", given.disk, "DISK", "the disk whose size it gets: a name, a path or a GUID")
        ->check(check_not_empty);
    add_place(app, given)->required();
    add_volume_name(app, given);
    add_consent(app, given);
    app.get_option("--yes")->description("also where it is lost when the host is restarted");
}

void add_old_volume(CLI::App &app, verb_options &given)
{
    app.add_option("NAME", given.volume, "name of the volume")
        ->type_name("")
        ->check(check_not_empty)
        ->required();
    add_consent(app, given);
}

void add_config_file(CLI::App &app, verb_options &given)
{
    app.add_option("FILE", given.config_file, "the file, if it is not the one that the daemon reads")
        ->type_name("")
        ->default_str(config_path)
        ->check(check_not_empty);
    given.config_file = config_path;
}

void add_new_config(CLI::App &app, verb_options &given)
{
    add_config_file(app, given);
    const auto add_port = [&app](const char *name, uint16_t &port, uint16_t preset, const char *description) {
        port = preset;
        app.add_option(name, port, description)
            ->type_name("PORT")
            ->check(CLI::Range(1, 65535).description(""));
        app.get_option(name)->capture_default_str();
    };
    add_port("--client-port", given.client_port, default_client_port, "where the daemon listens");
    add_port("--server-port", given.server_port, default_server_port, "where its manager listens");
    app.add_flag("--config-only", given.config_only, "write the configuration, and start nothing");
    add_consent(app, given);
}

void add_patience(CLI::App &app, verb_options &given)
{
    given.seconds = 60;
    app.add_option("--seconds", given.seconds, "how long to wait")
        ->type_name("SECONDS")
        ->check(check_seconds)
        ->capture_default_str();
}

void add_health_limits(CLI::App &app, verb_options &given)
{
    const auto add = [&app](const char *name, uint32_t &warning, uint32_t &critical,
                            const char *description) {
        const auto take = [&warning, &critical](const std::string &text) {
            take_limits(text, warning, critical);
        };
        app.add_option_function<std::string>(name, take, description)
            ->type_name("INTERVAL[,INTERVAL]")
            ->check([](const std::string &text) {
                uint32_t ignored = 0;
                return take_limits(text, ignored, ignored);
            });
    };
    health_limits &limits = given.limits;
    add("--behind", limits.behind_warning, limits.behind_critical,
        "how long ago a mirror that is not level may have been\n"
        "so: a warning beyond the first, critical beyond the\n"
        "second (5min,1h)");
    add("--snapshot-age", limits.snapshot_warning, limits.snapshot_critical,
        "how old the last snapshot of what has a schedule may\n"
        "be; without it, a warning when one was missed");
    add("--heartbeat", limits.heartbeat_warning, limits.heartbeat_critical,
        "how long ago the last heartbeat may have come to a\n"
        "manager on this host (30s,10min)");
}

// --- Of commands -------------------------------------------------------------------------------------

void add_manager_options(CLI::App &app, command_options &given)
{
    add_text(app, "--guid", given.manager.guid, "GUID", "GUID of the manager");
    app.add_option("--ip", given.manager.ips, "address of the manager, may be repeated")
        ->type_name("ADDR")
        ->allow_extra_args(false)
        ->check(check_address)
        ->required();
    const auto take_target = [&given](const std::string &text) { given.manager.target_iqn = text; };
    app.add_option_function<std::string>("--target-iqn", take_target, "iSCSI target of the manager")
        ->type_name("IQN");
}

void add_pair_options(CLI::App &app, command_options &given)
{
    add_text(app, "--guid", given.manager.guid, "GUID", "GUID of the manager");
    add_text(app, "--client-guid", given.client_guid, "GUID", "GUID of the host");
}

void add_channel_options(CLI::App &app, command_options &given)
{
    channel_record &channel = given.channel;
    add_text(app, "--initiator-iqn", channel.initiator_iqn, "IQN", "iSCSI name of the host");
    add_text(app, "--initiator-ip", channel.initiator_ip, "ADDR", "address of the host to connect from")
        ->check(check_address);
    add_text(app, "--target-iqn", channel.target_iqn, "IQN", "iSCSI name of the target");
    add_text(app, "--target-ip", channel.target_ip, "ADDR[:PORT]", "address of the target")
        ->check(check_portal);
}

void add_alias_option(CLI::App &app, command_options &given)
{
    add_text(app, "--alias", given.alias, "TEXT", "the new alias; may be empty");
}
