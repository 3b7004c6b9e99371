#include "tools/volumes/store.h"

#include "tools/volumes/first_sector.h"
#include "tools/volumes/lvm.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {
std::string because(const std::string &what)
{
    return what + ": " + strerror(errno);
}

// Whose creation had not come that far is not ours.
std::string left_alone(const volume_record &volume, const std::string &mark)
{
    return volume.state == volume_state::creating
               ? ""
               : volume.place + " does not have " + mark + " and is left alone";
}

// --- Files -------------------------------------------------------------------------------------------

std::string folder_of(const std::string &path)
{
    return path.substr(0, path.rfind('/') + 1);
}

// A file gets its name when it is complete. Before that, its name has the signature: it can only be ours.
std::string unfinished(const volume_record &volume)
{
    return folder_of(volume.place) + "." + volume.name + "." + volume.guid.substr(0, 8) + ".new";
}

bool sync_folder_of(const std::string &path)
{
    const unique_fd folder(open(folder_of(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return folder.is_open() && fsync(folder.get()) == 0;
}

bool fill_file(const volume_record &volume, const std::string &path)
{
    const unique_fd file(open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600));
    return file.is_open() && ftruncate(file.get(), static_cast<off_t>(volume.size)) == 0 &&
           write_first_sector(file.get(), volume.guid) && fsync(file.get()) == 0;
}

std::string make_file(const volume_record &volume)
{
    const std::string path = unfinished(volume);
    // A link, unlike a renamed file, never takes the place of another file.
    const bool is_made = fill_file(volume, path) && link(path.c_str(), volume.place.c_str()) == 0;
    std::string error;
    if (!is_made)
        error = errno == EFBIG ? "this file system cannot hold a file of that size" : because(volume.place);
    unlink(path.c_str());
    if (is_made && !sync_folder_of(volume.place)) {
        error = because(volume.place);
        unlink(volume.place.c_str());
    }
    return error;
}

std::string file_fault(const volume_record &volume)
{
    struct stat facts {};
    if (stat(volume.place.c_str(), &facts) != 0)
        return because(volume.place);
    if (!S_ISREG(facts.st_mode))
        return volume.place + " is not a file";
    if (static_cast<uint64_t>(facts.st_size) < volume.size)
        return volume.place + " is shorter than the volume";
    return "";
}

std::string remove_file(const volume_record &volume)
{
    if (unlink(unfinished(volume).c_str()) != 0 && errno != ENOENT)
        return because(unfinished(volume));
    if (access(volume.place.c_str(), F_OK) != 0)
        return errno == ENOENT ? "" : because(volume.place);
    if (guid_in(volume.place) != volume.guid)
        return left_alone(volume, "the signature of this volume");
    if (unlink(volume.place.c_str()) != 0 || !sync_folder_of(volume.place))
        return because(volume.place);
    return "";
}

// --- LVM ---------------------------------------------------------------------------------------------

std::string tag_of(const volume_record &volume)
{
    return "qelcd-" + volume.guid.substr(0, 8);
}

bool has_tag(const lvm_volume &volume, const std::string &tag)
{
    return ("," + volume.tags + ",").find("," + tag + ",") != std::string::npos;
}

// What was in the extents before must not show through where tables and superblocks are looked for.
std::string prepare_lvm(const volume_record &volume)
{
    const unique_fd device(open(store_path(volume).c_str(), O_RDWR | O_CLOEXEC));
    const bool is_done = device.is_open() &&
                         (volume.kind == volume_kind::thin || clear_ends(device.get(), volume.size)) &&
                         write_first_sector(device.get(), volume.guid) && fsync(device.get()) == 0;
    return is_done ? "" : because(store_path(volume));
}

// Null if it is there, with its FACTS. Else what is wrong: IF_MISSING, or that LVM does not tell.
std::optional<std::string> look_at_lvm(const volume_record &volume, lvm_volume *facts,
                                       const std::string &if_missing)
{
    std::string why;
    const lvm_found found = find_lvm(volume.place, facts, &why);
    if (found == lvm_found::failed)
        return volume.place + ": " + why;
    return found == lvm_found::missing ? std::optional(if_missing) : std::nullopt;
}

std::string remove_lvm_store(const volume_record &volume)
{
    lvm_volume facts;
    if (const auto wrong = look_at_lvm(volume, &facts, ""))
        return *wrong;
    if (!has_tag(facts, tag_of(volume)))
        return left_alone(volume, "the tag " + tag_of(volume));
    return remove_lvm(volume.place);
}

std::string make_lvm_store(const volume_record &volume, const std::string &pool)
{
    lvm_volume facts;
    std::string error;
    if (find_lvm(volume.place, &facts, &error) == lvm_found::found)
        return volume.place + " exists";
    if (error.empty())
        error = create_lvm(volume.place, pool, volume.size, tag_of(volume));
    if (!error.empty())
        return error;
    error = prepare_lvm(volume);
    if (!error.empty())
        remove_lvm_store(volume);
    return error;
}

std::string lvm_fault(const volume_record &volume)
{
    lvm_volume facts;
    if (const auto wrong = look_at_lvm(volume, &facts, volume.place + " is not there"))
        return *wrong;
    if (!facts.is_active)
        return volume.place + " is not active (lvchange --activate y " + volume.place + ")";
    if (facts.is_pool_full)
        return "the pool " + facts.pool + " is full (lvextend makes it larger)";
    if (facts.size < volume.size)
        return volume.place + " is smaller than the volume";
    return access(store_path(volume).c_str(), F_OK) == 0 ? "" : because(store_path(volume));
}
} // namespace

std::string store_path(const volume_record &volume)
{
    return (volume.kind == volume_kind::file ? "" : "/dev/") + volume.place;
}

std::string make_store(const volume_record &volume, const std::string &pool)
{
    return volume.kind == volume_kind::file ? make_file(volume) : make_lvm_store(volume, pool);
}

std::string remove_store(const volume_record &volume)
{
    return volume.kind == volume_kind::file ? remove_file(volume) : remove_lvm_store(volume);
}

std::string store_fault(const volume_record &volume)
{
    const std::string fault = volume.kind == volume_kind::file ? file_fault(volume) : lvm_fault(volume);
    if (fault.empty() && guid_in(store_path(volume)) != volume.guid)
        return store_path(volume) + " does not have the signature of this volume any more";
    return fault;
}

bool is_store_there(const volume_record &volume)
{
    lvm_volume facts;
    std::string why;
    return volume.kind == volume_kind::file ? access(volume.place.c_str(), F_OK) == 0
                                            : find_lvm(volume.place, &facts, &why) == lvm_found::found;
}

std::string removal_objection(const volume_record &volume)
{
    std::string why;
    if (volume.kind == volume_kind::file)
        return guid_in(volume.place) == volume.guid ? "" : left_alone(volume, "the signature of this volume");
    lvm_volume facts;
    if (find_lvm(volume.place, &facts, &why) == lvm_found::found && !has_tag(facts, tag_of(volume)))
        return left_alone(volume, "the tag " + tag_of(volume));
    const auto lost = volume.kind == volume_kind::thick ? lvm_snapshots(volume.place, &why) : "";
    return !why.empty() || !lost || lost->empty() ? why : "its snapshots would be lost with it: " + *lost;
}

std::optional<uint64_t> store_taken(const volume_record &volume)
{
    struct stat facts {};
    lvm_volume found;
    std::string why;
    if (volume.kind == volume_kind::file)
        return stat(volume.place.c_str(), &facts) == 0
                   ? std::optional(static_cast<uint64_t>(facts.st_blocks) * 512)
                   : std::nullopt;
    return find_lvm(volume.place, &found, &why) == lvm_found::found ? std::optional(found.taken)
                                                                    : std::nullopt;
}
