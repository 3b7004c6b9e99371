#include "platform/linux/mirror/disk_census.h"

#include "base/fd.h"
#include "base/hash.h"
#include "platform/linux/host/sysfs.h"
#include "platform/linux/host/text.h"

#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <mutex>
#include <optional>
#include <string>

namespace {

using namespace std::chrono_literals;
using steady_clock = std::chrono::steady_clock;

// Counts the messages of the kernel about devices that come, go or change (Documentation/ABI/testing/
// sysfs-kernel-uevents in the kernel). While it stands still, nothing of that has happened.
std::optional<uint64_t> count_device_events()
{
    static const auto *file = new unique_fd(open("/sys/kernel/uevent_seqnum", O_RDONLY | O_CLOEXEC));
    char text[32];
    const ssize_t count = pread(file->get(), text, sizeof text, 0);
    return count > 1 ? parse_number({text, static_cast<size_t>(count - 1)}) : std::nullopt;
}

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
    static steady_clock::time_point looked;
    static std::optional<uint64_t> events;
    static uint64_t census = 0;
    const std::lock_guard held(lock);
    const auto now = steady_clock::now();
    if (looked != steady_clock::time_point() && now - looked < 1s)
        return census;
    looked = now;
    if (const auto events_now = count_device_events(); !events_now || events_now != events) {
        events = events_now;
        census = take_census();
    }
    return census;
}
