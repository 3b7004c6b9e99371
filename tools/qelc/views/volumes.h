// Volumes of this host, for a person and for programs.
#pragma once

#include "tools/volumes/volumes.h"

#include <string>
#include <vector>

// A table, and a line for each volume that is not there.
std::string volumes_table(const std::vector<volume_view> &volumes);

// One line each.
std::string volumes_json(const std::vector<volume_view> &volumes);
std::string new_volume_json(const new_volume &made);
std::string success_json();
