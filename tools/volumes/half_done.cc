#include "tools/volumes/half_done.h"

#include "tools/volumes/host_view.h"
#include "tools/volumes/loop_device.h"
#include "tools/volumes/store.h"

std::optional<volume_record> find_volume(const std::string &name)
{
    const auto volumes = load_volumes(bad_files::set_aside);
    for (const volume_record &volume : volumes.value_or(std::vector<volume_record>{})) {
        if (volume.name == name)
            return volume;
    }
    return std::nullopt;
}

std::string use_of(const volume_record &volume)
{
    const auto sources = sources_by_mirror();
    if (!sources)
        return "the relationships of this host cannot be read";
    for (const auto &[mirror, source] : *sources) {
        if (mirror != volume.guid && source != volume.guid)
            continue;
        const std::string name = name_of_disk(source);
        return (mirror == volume.guid ? "it is the mirror of " + name : "it is protected itself") +
               "; end that first: qelc unprotect " + name;
    }
    return "";
}

std::string detach_volume(const volume_record &volume)
{
    const auto device = loop_over(store_path(volume));
    return device ? detach_loop(*device, store_path(volume)) : "";
}

std::string remove_marked(const volume_record &volume)
{
    std::string why = detach_volume(volume);
    if (why.empty())
        why = remove_store(volume);
    if (why.empty() && !forget_volume(volume))
        why = "it is gone, but its record cannot be removed";
    return why;
}

namespace {
bool remove_leftover(volume_record volume, const line_taker &say)
{
    const bool is_new = volume.state == volume_state::creating;
    const std::string use = is_new ? "" : use_of(volume);
    if (!use.empty()) { // since its removal was ordered
        volume.state = volume_state::whole;
        say(volume.name + " was to be deleted, and is kept: " + use);
        return save_volume(volume);
    }
    const std::string why = remove_marked(volume);
    if (!why.empty())
        say(volume.name + " was left half " + (is_new ? "made" : "deleted") + ": " + why);
    return why.empty();
}
} // namespace

bool remove_leftovers(const line_taker &say)
{
    const auto volumes = load_volumes(bad_files::set_aside);
    bool is_clean = volumes.has_value();
    for (const volume_record &volume : volumes.value_or(std::vector<volume_record>{})) {
        if (volume.state != volume_state::whole && !remove_leftover(volume, say))
            is_clean = false;
    }
    return is_clean;
}
