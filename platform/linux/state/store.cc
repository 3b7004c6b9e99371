#include "platform/linux/state/store.h"

#include "base/secret.h"
#include "platform/linux/host/sysfs.h"
#include "platform/linux/host/weak_log.h"
#include "platform/linux/state/lock.h"

#include <cerrno>
#include <cstring>

namespace {

// A file name may have 255 bytes; this leaves room for its ending.
constexpr size_t longest_safe_key = 200;

std::string ending(const record_kind &kind)
{
    return std::string(".") + kind.name;
}

std::string path_of(const record_kind &kind, const std::string &key)
{
    return std::string(kind.folder.path) + "/" + escaped(key, plain_in_file_names) + ending(kind);
}

bool is_safe_key(const std::string &key)
{
    return escaped(key, plain_in_file_names).size() <= longest_safe_key;
}

enum class lookup { found, missing, failed };

// The caller holds the lock of the files.
lookup load_record(const record_kind &kind, const std::string &path, record_fields *fields,
                   bad_files bad = bad_files::set_aside)
{
    std::string text;
    const wiped_at_end after_decoding(text);
    const file_content content = read_state_file(path, &text);
    if (content == file_content::missing)
        return lookup::missing;
    if (content == file_content::failed)
        return lookup::failed;
    auto decoded =
        content == file_content::text ? decode_record(kind.folder.owner, kind.name, text) : std::nullopt;
    // A record may have been copied to another name.
    if (decoded && kind.is_sound(*decoded) && path_of(kind, decoded->front().second) == path) {
        *fields = std::move(*decoded);
        return lookup::found;
    }
    if (decoded)
        wipe(*decoded);
    return bad == bad_files::left_alone || set_aside(kind.folder, path) ? lookup::missing : lookup::failed;
}

// Closed after a log line; closed without one if there is no folder.
unique_fd locked_files(const record_kind &kind, bool *has_folder)
{
    unique_fd lock = lock_files(kind.folder);
    *has_folder = lock.is_open() || errno != ENOENT;
    if (!lock.is_open() && *has_folder)
        log_error("Cannot lock %s: %s", kind.folder.path, strerror(errno));
    return lock;
}

bool load_files(const record_kind &kind, const std::vector<std::string> &names, bad_files bad,
                std::vector<record_fields> *records)
{
    for (const std::string &name : names) {
        record_fields fields;
        if (!name.ends_with(ending(kind)))
            continue;
        const lookup result = load_record(kind, std::string(kind.folder.path) + "/" + name, &fields, bad);
        if (result == lookup::failed)
            return false;
        if (result == lookup::found)
            records->push_back(std::move(fields));
    }
    return true;
}

} // namespace

bool store_record(const record_kind &kind, const record_fields &fields)
{
    const std::string &key = fields.front().second;
    if (!is_safe_key(key)) {
        log_error("Cannot keep %s %s: its name is too long", kind.name, escaped(key).c_str());
        return false;
    }
    if (!make_state_folder(kind.folder))
        return false;
    bool has_folder = true;
    const unique_fd lock = locked_files(kind, &has_folder);
    record_fields former;
    const wiped_at_end after_writing(former);
    const std::string path = path_of(kind, key);
    std::string text = encode_record(kind.folder.owner, kind.name, fields);
    const wiped_at_end once_written(text);
    return lock.is_open() && load_record(kind, path, &former) != lookup::failed &&
           write_state_file(kind.folder, path, text);
}

int remove_record(const record_kind &kind, const std::string &key)
{
    bool has_folder = true;
    const unique_fd lock = locked_files(kind, &has_folder);
    if (!has_folder || !is_safe_key(key))
        return 0;
    if (!lock.is_open())
        return -1;
    record_fields fields;
    const wiped_at_end after_removal(fields);
    const std::string path = path_of(kind, key);
    const lookup result = load_record(kind, path, &fields);
    if (result != lookup::found)
        return result == lookup::missing ? 0 : -1;
    if (unlink(path.c_str()) == 0 && sync_state_folder(kind.folder))
        return 1;
    log_error("Cannot remove %s: %s", path.c_str(), strerror(errno));
    return -1;
}

bool set_aside_record(const record_kind &kind, const std::string &key)
{
    bool has_folder = true;
    const unique_fd lock = locked_files(kind, &has_folder);
    return lock.is_open() && set_aside(kind.folder, path_of(kind, key));
}

std::optional<std::vector<record_fields>> load_records(const record_kind &kind, bad_files bad)
{
    std::vector<record_fields> records;
    bool has_folder = true;
    const unique_fd lock = locked_files(kind, &has_folder);
    if (!has_folder)
        return records;
    if (!lock.is_open())
        return std::nullopt;
    const auto names = list_folder(kind.folder.path);
    if (!names) {
        log_error("Cannot list %s: %s", kind.folder.path, strerror(errno));
        return std::nullopt;
    }
    if (!load_files(kind, *names, bad, &records))
        return std::nullopt;
    return records;
}
