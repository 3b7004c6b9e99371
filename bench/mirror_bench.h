// What the benchmarks of the mirrors have in common.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

[[noreturn]] void give_up(const std::string &what);

double seconds_since(std::chrono::steady_clock::time_point start);

// The GUID of a disk without a SCSI identity.
std::string guid_of(const std::string &path);

bool is_level(const std::string &guid);
void protect_or_give_up(const std::string &guid, const std::string &mirror_guid);
void unprotect_or_give_up(const std::string &guid);

// Copies everything and waits until the two are level. Returns the seconds that took.
double time_resync(const std::string &guid);

double cpu_seconds();        // of this process
double engine_cpu_seconds(); // of the threads that mirror
