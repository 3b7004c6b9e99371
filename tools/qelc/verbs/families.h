// The tables of verbs, and what several of them use.
#pragma once

#include "tools/qelc/bodies/protection.h"
#include "tools/qelc/host.h"
#include "tools/qelc/verbs.h"

#include <span>
#include <string>

std::span<const verb> disk_verbs();
std::span<const verb> mirror_verbs();
std::span<const verb> snapshot_verbs();
std::span<const verb> kept_verbs();
std::span<const verb> prune_verbs();
std::span<const verb> group_verbs();
std::span<const verb> database_verbs();
std::span<const verb> volume_verbs();
std::span<const verb> host_verbs();
std::span<const verb> status_verbs();
std::span<const verb> top_verbs();
std::span<const verb> metrics_verbs();
std::span<const verb> events_verbs();

// The schedule that was given; both times are 0 if none was.
snapshot_times times_of(const verb_options &given);

// The group that was given, or else DISK.
snapshot_source source_of(const verb_options &given, const std::string &disk);

// The same with the disk's GUID, and its NAME for the person. Throws verb_end if there is no such disk or
// group.
snapshot_source source_meant(host &at, const verb_options &given, std::string &name);

// Whether the schedule of SOURCE is what was WANTED; {} for none.
verb_item schedule_item(host &at, const snapshot_source &source, const snapshot_times &wanted);
