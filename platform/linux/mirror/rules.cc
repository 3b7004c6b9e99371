#include "platform/linux/mirror/rules.h"

#include "platform/linux/mirror/locate_disk.h"

namespace {

std::optional<located_disk> locate_usable(const std::string &guid, std::string *why)
{
    auto disk = locate_disk(guid, why);
    if (disk && disk->is_usable)
        return disk;
    *why = "disk " + escaped(guid) + ": " + (disk ? disk->path + " must not be touched" : *why);
    return std::nullopt;
}

// "" if SOURCE may be copied to DEST. The claim on the mirror ends with this check; each copy claims it
// again.
std::string objection_to(const located_disk &source, const located_disk &dest)
{
    std::string why;
    if (source.path == dest.path)
        return source.path + " cannot be its own mirror";
    if (dest.size < source.size)
        return dest.path + " is smaller than " + source.path;
    if (!read_write_mark(source.name))
        return "the kernel does not count what is written to " + source.path;
    const unique_fd from = open_source(source, &why);
    if (!from.is_open())
        return "cannot read " + source.path + ": " + why;
    const unique_fd to = open_mirror(dest, &why);
    if (!to.is_open())
        return "cannot write to " + dest.path + ": " + why;
    for (const uint64_t block : {logical_block(from.get()), logical_block(to.get())}) {
        if (block == 0 || block > compared_page || source.size % block != 0)
            return "the sizes of the blocks of " + source.path + " and " + dest.path + " do not go together";
    }
    return "";
}

} // namespace

std::optional<mirror_record> new_relationship(const std::string &src_guid, const std::string &dest_guid,
                                              std::string *why)
{
    const auto source = locate_usable(src_guid, why);
    const auto dest = source ? locate_usable(dest_guid, why) : std::nullopt;
    if (!dest)
        return std::nullopt;
    *why = objection_to(*source, *dest);
    if (!why->empty())
        return std::nullopt;
    mirror_record record;
    record.src_guid = src_guid;
    record.dest_guid = dest_guid;
    record.src_path = source->path;
    record.dest_path = dest->path;
    record.size = source->size;
    return record;
}
