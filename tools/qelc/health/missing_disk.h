// Why a disk of a mirror is not in use, as far as this host can see it.
#pragma once

#include <string>

// What is at PATH, where the disk with that GUID was last: "/dev/sdd is not there", "/dev/sdd has another
// signature (GUID)"; "" if it is there.
std::string why_missing(const std::string &path, const std::string &guid);
