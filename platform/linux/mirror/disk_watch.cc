#include "platform/linux/mirror/disk_watch.h"

#include "platform/linux/mirror/write_mark.h"

#include <fcntl.h>

namespace {

unique_fd open_fact(const located_disk &disk, const char *name)
{
    return unique_fd(open(("/sys/block/" + disk.name + "/" + name).c_str(), O_RDONLY | O_CLOEXEC));
}

// Without its newline. "" if the device is gone, or has no such file.
std::string fact_in(const unique_fd &file)
{
    char text[64];
    const ssize_t count = file.is_open() ? pread(file.get(), text, sizeof text, 0) : 0;
    return count > 0 ? std::string(text, static_cast<size_t>(count - (text[count - 1] == '\n'))) : "";
}

} // namespace

disk_watch::disk_watch(const located_disk &disk)
    : size_text_(std::to_string(disk.size / 512)), sequence_(disk.sequence), size_(open_fact(disk, "size")),
      diskseq_(open_fact(disk, "diskseq")), iostats_(open_fact(disk, "queue/iostats")),
      counters_(open_counters(disk.name))
{
}

bool disk_watch::is_same() const
{
    return fact_in(size_) == size_text_ && fact_in(diskseq_) == sequence_;
}

bool disk_watch::counts_writes() const
{
    return fact_in(iostats_) != "0" && sectors_changed();
}

std::optional<uint64_t> disk_watch::sectors_changed() const
{
    return ::sectors_changed(counters_);
}
