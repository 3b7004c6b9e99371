// Volumes of this host, for a person and for programs.
#pragma once

#include "tools/qelc/views/envelope.h"
#include "tools/volumes/volumes.h"

#include <string>
#include <vector>

// A table, and a line for each volume that is not there.
std::string volumes_table(const std::vector<volume_view> &volumes);

// An object of each; sizes in bytes.
json_object volume_records(const std::vector<volume_view> &volumes);
