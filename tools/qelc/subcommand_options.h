// The options of qelc's subcommands: its verbs, and the commands whose bodies it builds.
#pragma once

#include "base/text.h"
#include "tools/common/bodies.h"
#include "tools/qelc/bodies/host.h"
#include "tools/qelc/health/limits.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
}

// What was given to a verb; each verb takes some of it.
struct verb_options {
    std::vector<std::string> disks; // names or GUIDs, or SRC=MIRROR
    std::string disk;
    std::string mirror;
    std::string group;
    std::string note;                   // of a snapshot
    std::vector<std::string> snapshots; // by name
    std::string start;
    uint32_t every = 0;
    bool off = false;
    std::optional<unsigned> watch; // seconds
    bool wait = false;             // for mirrors
    uint32_t limit = 0;            // of that, in seconds; 0: none
    std::string instance;
    optional_text user;
    optional_text password; // of the user; no option gives it
    std::string password_file;
    optional_text oracle_home;
    std::string where;  // a new volume lies
    std::string folder; // to mount on
    std::optional<uint64_t> partition;
    std::string restore_to; // disk
    bool no_snapshot = false;
    std::string volume; // name
    bool yes = false;
    bool dry_run = false;
    bool no_create = false;      // a group
    bool is_for_program = false; // no option gives it: --json
    bool archive_log = false;
    bool all = false; // of the disks
    std::string config_file;
    bool config_only = false;
    uint16_t client_port = 0;
    uint16_t server_port = 0;
    uint32_t seconds = 0; // to wait
    health_limits limits;
};

// What was given to a command; each command takes some of it.
struct command_options {
    manager_record manager;
    std::string client_guid;
    std::string alias;
    channel_record channel;
};

// Each adds what its subcommand APP takes. GIVEN must live as long as APP.
void add_no_options(CLI::App &app, verb_options &given);
void add_pairs(CLI::App &app, verb_options &given); // of disks and mirrors, to protect
void add_sources(CLI::App &app, verb_options &given);
void add_mirrors_options(CLI::App &app, verb_options &given);
void add_disks_options(CLI::App &app, verb_options &given);
void add_one_mirror(CLI::App &app, verb_options &given);
void add_volumes(CLI::App &app, verb_options &given);
void add_disk_or_group(CLI::App &app, verb_options &given);
void add_disk_or_group_to_change(CLI::App &app, verb_options &given);
void add_snapshot_options(CLI::App &app, verb_options &given);
void add_snapshot_name(CLI::App &app, verb_options &given);
void add_attach_options(CLI::App &app, verb_options &given);
void add_mount_options(CLI::App &app, verb_options &given);
void add_restore_options(CLI::App &app, verb_options &given);
void add_consent(CLI::App &app, verb_options &given); // of every verb that changes something
void add_schedule_options(CLI::App &app, verb_options &given);
void add_group_name(CLI::App &app, verb_options &given);
void add_group_and_any_disks(CLI::App &app, verb_options &given);
void add_group_and_disks(CLI::App &app, verb_options &given);
void add_group_and_disk(CLI::App &app, verb_options &given);
void add_instance(CLI::App &app, verb_options &given);
void add_database_options(CLI::App &app, verb_options &given);
void add_new_volume(CLI::App &app, verb_options &given);
void add_old_volume(CLI::App &app, verb_options &given);
void add_names_to_change(CLI::App &app, verb_options &given); // of snapshots
void add_config_file(CLI::App &app, verb_options &given);
void add_new_config(CLI::App &app, verb_options &given);
void add_patience(CLI::App &app, verb_options &given);
void add_health_limits(CLI::App &app, verb_options &given);

void add_manager_options(CLI::App &app, command_options &given);
void add_pair_options(CLI::App &app, command_options &given);
void add_channel_options(CLI::App &app, command_options &given);
void add_alias_option(CLI::App &app, command_options &given);
