#include "platform/linux/disks/content.h"

#include "base/deleter.h"
#include "base/exceptions.h"

#include <blkid/blkid.h>

#include <memory>
#include <string_view>
#include <utility>

namespace {

using probe_holder = std::unique_ptr<blkid_struct_probe, deleter<blkid_free_probe>>;

// libblkid does not always say that it ran out of memory. So errno is cleared before it is asked, and ENOMEM
// counts whatever it answers.
template <class Question>
auto asked(Question question)
{
    errno = 0;
    const auto answer = question();
    throw_if_memory_ran_out();
    return answer;
}

int safeprobe(const probe_holder &probe)
{
    return asked([&] { return blkid_do_safeprobe(probe.get()); });
}

// Length 0 means the rest of the device. Null on failure.
probe_holder open_probe(int fd, uint64_t offset, uint64_t length)
{
    probe_holder probe(asked(blkid_new_probe));
    if (probe && blkid_probe_set_device(probe.get(), fd, static_cast<blkid_loff_t>(offset),
                                        static_cast<blkid_loff_t>(length)) != 0)
        probe.reset();
    return probe;
}

std::string_view found_value(const probe_holder &probe, const char *name)
{
    const char *text = nullptr;
    size_t size = 0;
    if (blkid_probe_lookup_value(probe.get(), name, &text, &size) != 0 || !text)
        return {};
    return text;
}

table_type found_table(const probe_holder &probe)
{
    const std::string_view type = found_value(probe, "PTTYPE");
    if (type == "dos")
        return table_type::mbr;
    if (type == "gpt")
        return table_type::gpt;
    return type.empty() ? table_type::none : table_type::other;
}

// libblkid stops at the first partition table that it knows. A second table beside an MBR or GPT may use byte
// 440.
bool has_second_table(int fd)
{
    const probe_holder probe = open_probe(fd, 0, 0);
    if (!probe)
        return true;
    char mbr[] = "dos";
    char gpt[] = "gpt";
    char protective_mbr[] = "PMBR";
    char *expected[] = {mbr, gpt, protective_mbr, nullptr};
    blkid_probe_enable_superblocks(probe.get(), 0);
    blkid_probe_enable_partitions(probe.get(), 1);
    blkid_probe_filter_partitions_type(probe.get(), BLKID_FLTR_NOTIN, expected);
    return safeprobe(probe) != 1;
}

std::optional<disk_content> look_at_content(int fd)
{
    const probe_holder probe = open_probe(fd, 0, 0);
    if (!probe)
        return std::nullopt;
    blkid_probe_enable_superblocks(probe.get(), 1);
    // A damaged superblock may still be valuable data.
    blkid_probe_set_superblocks_flags(probe.get(), BLKID_SUBLKS_TYPE | BLKID_SUBLKS_BADCSUM);
    blkid_probe_enable_partitions(probe.get(), 1);
    const int result = safeprobe(probe);
    if (result == 1)
        return disk_content{};
    if (result != 0)
        return std::nullopt;
    disk_content content{!found_value(probe, "TYPE").empty(), found_table(probe)};
    if (content.table != table_type::none && content.table != table_type::other && has_second_table(fd))
        content.table = table_type::other;
    if (!content.superblock && content.table == table_type::none)
        return std::nullopt;
    return content;
}

} // namespace

std::optional<disk_content> read_content(int fd)
{
    // Without memory for a value libblkid forgets what it has found, and goes on: a file system would look
    // like a blank disk. So two looks must agree.
    constexpr int most_looks = 4;
    auto content = look_at_content(fd);
    for (int looks = 1; looks < most_looks; ++looks) {
        const auto former = std::exchange(content, look_at_content(fd));
        if (content == former)
            return content;
    }
    return std::nullopt;
}

table_type read_table_type(int fd)
{
    const probe_holder probe = open_probe(fd, 0, 0);
    if (!probe)
        return table_type::none;
    blkid_probe_enable_superblocks(probe.get(), 0);
    blkid_probe_enable_partitions(probe.get(), 1);
    return safeprobe(probe) == 0 ? found_table(probe) : table_type::none;
}

std::vector<table_entry> read_table(int fd)
{
    std::vector<table_entry> entries;
    const probe_holder probe = open_probe(fd, 0, 0);
    const blkid_partlist list =
        probe ? asked([&] { return blkid_probe_get_partitions(probe.get()); }) : nullptr;
    const int count = list ? blkid_partlist_numof_partitions(list) : 0;
    for (int i = 0; i < count; i++) {
        const blkid_partition partition = blkid_partlist_get_partition(list, i);
        const char *guid = blkid_partition_get_uuid(partition);
        entries.push_back({static_cast<uint64_t>(blkid_partition_get_start(partition)),
                           static_cast<uint64_t>(blkid_partition_get_partno(partition)), guid ? guid : "",
                           static_cast<uint64_t>(blkid_partition_get_size(partition))});
    }
    return entries;
}

std::optional<std::string> read_file_system(int fd, uint64_t offset, uint64_t length, std::string *label)
{
    const probe_holder probe = length > 0 ? open_probe(fd, offset, length) : nullptr;
    if (!probe)
        return std::nullopt;
    blkid_probe_enable_superblocks(probe.get(), 1);
    blkid_probe_set_superblocks_flags(probe.get(), BLKID_SUBLKS_TYPE | (label ? BLKID_SUBLKS_LABEL : 0));
    if (safeprobe(probe) != 0)
        return std::nullopt;
    if (label)
        *label = found_value(probe, "LABEL");
    const std::string_view type = found_value(probe, "TYPE");
    return type.empty() ? std::nullopt : std::optional<std::string>(type);
}
