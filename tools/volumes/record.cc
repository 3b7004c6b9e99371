#include "tools/volumes/record.h"

#include "base/log.h"
#include "platform/linux/devices/disk_signature.h"
#include "platform/linux/host/sysfs.h"
#include "platform/linux/host/text.h"
#include "platform/linux/state/lock.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

namespace {
constexpr state_folder volumes_folder = {"/var/lib/qelcd-volumes", "qelcd-volumes"};
constexpr off_t place_of_commands = place_of_files + 1;
constexpr size_t longest_name = 100;

constexpr std::array<const char *, 3> state_texts = {"creating", "whole", "deleting"};
constexpr std::array<const char *, 3> kind_texts = {"file", "thin", "thick"};

// The first one for a text that is none of them.
template <class value>
value value_of(const std::array<const char *, 3> &texts, const std::string &text)
{
    const auto found = std::find(texts.begin(), texts.end(), text);
    return static_cast<value>(found == texts.end() ? 0 : found - texts.begin());
}

record_fields fields_of(const volume_record &volume)
{
    return {{"name", volume.name},
            {"guid", volume.guid},
            {"state", text_of(volume.state)},
            {"kind", text_of(volume.kind)},
            {"place", volume.place},
            {"size", std::to_string(volume.size)},
            {"block", std::to_string(volume.block)}};
}

// Wrong fields are detected by comparing FIELDS with fields_of the result.
volume_record volume_of(const record_fields &fields)
{
    const auto text = [&](size_t i) { return i < fields.size() ? fields[i].second : std::string(); };
    return {text(0),
            text(1),
            value_of<volume_state>(state_texts, text(2)),
            value_of<volume_kind>(kind_texts, text(3)),
            text(4),
            parse_number(text(5)).value_or(0),
            parse_number(text(6)).value_or(0)};
}

bool is_volume(const record_fields &fields)
{
    const volume_record volume = volume_of(fields);
    return fields_of(volume) == fields && is_volume_name(volume.name) && volume.size > 0 &&
           volume.size <= INT64_MAX && guid_of_signature(signature_of_guid(volume.guid)) == volume.guid &&
           volume.place.starts_with('/') == (volume.kind == volume_kind::file);
}

constexpr record_kind volume_records = {volumes_folder, "volume", is_volume};
} // namespace

const char *text_of(volume_state state)
{
    return state_texts.at(static_cast<size_t>(state));
}

const char *text_of(volume_kind kind)
{
    return kind_texts.at(static_cast<size_t>(kind));
}

bool is_volume_name(const std::string &name)
{
    const auto is_plain = [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
               c == '.' || c == '-' || c == '+';
    };
    return !name.empty() && name.size() <= longest_name && name[0] != '.' && name[0] != '-' &&
           std::all_of(name.begin(), name.end(), is_plain);
}

unique_fd lock_volumes()
{
    if (!make_state_folder(volumes_folder))
        return unique_fd();
    unique_fd lock = lock_places(volumes_folder, {place_of_commands});
    if (!lock.is_open())
        log_error("Cannot lock %s: %s", volumes_folder.path, strerror(errno));
    return lock;
}

bool save_volume(const volume_record &volume)
{
    return store_record(volume_records, fields_of(volume));
}

bool forget_volume(const volume_record &volume)
{
    return remove_record(volume_records, volume.name) >= 0;
}

std::optional<std::vector<volume_record>> load_volumes(bad_files bad)
{
    const auto all = load_records(volume_records, bad);
    if (!all)
        return std::nullopt;
    std::vector<volume_record> volumes;
    for (const record_fields &fields : *all)
        volumes.push_back(volume_of(fields));
    return volumes;
}

std::vector<std::string> damaged_volumes()
{
    std::vector<std::string> paths;
    for (const std::string &name : list_folder(volumes_folder.path).value_or(std::vector<std::string>{})) {
        if (name.find(".volume.damaged-") != std::string::npos)
            paths.push_back(std::string(volumes_folder.path) + "/" + name);
    }
    return paths;
}
