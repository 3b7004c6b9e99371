// Loop devices (loop(4), the kernel's drivers/block/loop.c), which show a file or a device to the host as a
// disk.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

// The path of the loop device over STORE, a file or a device; null if there is none.
std::optional<std::string> loop_over(const std::string &store);

// A loop device over the first SIZE bytes of STORE, with blocks of BLOCK bytes: its path. With direct I/O if
// the store allows it, so that the host does not cache each block twice. It stays after this process. Null
// with WHY on failure.
std::optional<std::string> attach_loop(const std::string &store, uint64_t size, uint64_t block,
                                       std::string *why);

// Ends the loop device PATH over STORE. Returns why not, "" on success: it is left as it is if anybody has
// it open.
std::string detach_loop(const std::string &path, const std::string &store);
