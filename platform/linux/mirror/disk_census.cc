#include "platform/linux/mirror/disk_census.h"

#include "base/hash.h"
#include "platform/linux/host/sysfs.h"

#include <chrono>
#include <mutex>
#include <string>

namespace {

using namespace std::chrono_literals;
using steady_clock = std::chrono::steady_clock;

// The kernel gives a device another sequence number when what is behind it changes
// (Documentation/ABI/stable/sysfs-block in the kernel).
uint64_t take_census()
{
    std::string disks;
    for (const std::string &name : list_folder("/sys/block").value_or(std::vector<std::string>{}))
        disks += name + " " + read_attribute("/sys/block/" + name + "/diskseq").value_or("") + "\n";
    return fnv1a_64(disks);
}

} // namespace

uint64_t disk_census()
{
    static std::mutex lock;
    static steady_clock::time_point taken;
    static uint64_t census = 0;
    const std::lock_guard held(lock);
    if (const auto now = steady_clock::now(); taken == steady_clock::time_point() || now - taken >= 1s) {
        census = take_census();
        taken = now;
    }
    return census;
}
