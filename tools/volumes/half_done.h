// What commands share that make and remove volumes, and what they leave when they are killed.
#pragma once

#include "tools/volumes/volumes.h"

// Null if there is none.
std::optional<volume_record> find_volume(const std::string &name);

// Why a volume must not go: a relationship uses it. "" if it may.
std::string use_of(const volume_record &volume);

// Ends the loop device of a volume. Returns why not; "" on success, and if there is none.
std::string detach_volume(const volume_record &volume);

// Removes all that is there of a volume whose record says that it goes, and the record. Returns what is
// wrong, "" for nothing.
std::string remove_marked(const volume_record &volume);

// Removes what commands left that were ended before they were done. False after a line for each volume that
// stays.
bool remove_leftovers(const line_taker &say);
