// The bodies of the commands for consistency groups.
#pragma once

#include <span>
#include <string>

// A group and the GUIDs of disks that are to be its members.
std::string group_document(const std::string &group, std::span<const std::string> disks);

// One of a group's disks.
std::string group_member_document(const std::string &group, const std::string &disk);

// A group to delete.
std::string group_end_document(const std::string &group);
