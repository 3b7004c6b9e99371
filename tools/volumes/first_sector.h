// The first sector of a volume: an MBR without partitions, whose signature identifies the volume.
#pragma once

#include <cstdint>
#include <string>

// Writes it to FD, a file or a device. False with errno.
bool write_first_sector(int fd, const std::string &guid);

// The GUID of the signature in the first sector of PATH; "" if there is none.
std::string guid_in(const std::string &path);

// Zeroes the beginning and the end of SIZE bytes, where old tables and superblocks may stand. False with
// errno.
bool clear_ends(int fd, uint64_t size);
