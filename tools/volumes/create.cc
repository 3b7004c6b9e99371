#include "tools/common/human_text.h"
#include "tools/volumes/half_done.h"
#include "tools/volumes/host_view.h"
#include "tools/volumes/loop_device.h"
#include "tools/volumes/place.h"
#include "tools/volumes/store.h"

namespace {
// Says what the volume may need. Returns why it cannot be made, "" if it can.
std::string room_objection(const volume_wish &wish, const volume_place &place, uint64_t size,
                           const line_taker &say)
{
    const std::string room =
        "the volume may need " + size_text(size) + "; " + size_text(place.free) + " are free";
    if (place.is_volatile && !wish.may_be_lost)
        return wish.where +
               ": what is there is lost when this host is restarted; --yes takes it nevertheless";
    if (place.kind == volume_kind::thick && place.free < size)
        return wish.where + ": " + room;
    say(wish.where + ": " + room +
        (place.free < size ? ". When they are used up, the mirror goes down until there is room" : ""));
    return "";
}

std::string name_objection(const std::string &name)
{
    if (!is_volume_name(name))
        return name + ": a name has letters, digits and _ . + -, at most 100";
    return find_volume(name) ? name + ": there is a volume with this name" : "";
}

std::optional<std::string> free_guid()
{
    const auto disks = known_disks();
    const auto volumes = load_volumes(bad_files::set_aside);
    const auto sources = sources_by_mirror();
    if (!disks || !volumes || !sources)
        return std::nullopt;
    std::set<std::string> taken;
    for (const known_disk &disk : *disks)
        taken.insert(disk.guid);
    for (const volume_record &volume : *volumes)
        taken.insert(volume.guid);
    for (const auto &[mirror, source] : *sources)
        taken.insert({mirror, source}); // they may be away
    return unused_guid(taken);
}

// Saves it before and after it is made. Returns what is wrong, "" for nothing; nothing is left then.
std::string make_volume(volume_record &volume, const std::string &pool, std::string *device)
{
    if (!save_volume(volume))
        return "it cannot be recorded";
    std::string why = make_store(volume, pool);
    volume_record whole = volume;
    whole.state = volume_state::whole;
    if (why.empty() && !save_volume(whole))
        why = "it cannot be recorded";
    if (why.empty())
        *device = attach_loop(store_path(volume), volume.size, volume.block, &why).value_or("");
    if (!why.empty())
        remove_marked(volume);
    return why;
}

volume_record volume_for(const known_disk &disk, const volume_place &place, const std::string &guid,
                         const std::string &wanted_name)
{
    volume_record volume;
    volume.name = wanted_name.empty() ? "mirror-" + guid.substr(0, 8) : wanted_name;
    volume.guid = guid;
    volume.kind = place.kind;
    volume.place = place.in + "/" + volume.name + (place.kind == volume_kind::file ? ".img" : "");
    volume.size = disk.facts.sectors * 512;
    volume.block = logical_block_of(disk.facts);
    return volume;
}
// What is to be made. Null with the reason in WHY.
std::optional<volume_record> plan_volume(const volume_wish &wish, const known_disk &disk, volume_place *place,
                                         const line_taker &say, std::string *why)
{
    *why = read_place(wish.where, disk.facts, place);
    if (!why->empty())
        *why = wish.where + ": " + *why;
    else
        *why = room_objection(wish, *place, disk.facts.sectors * 512, say);
    const auto guid = why->empty() ? free_guid() : std::nullopt;
    if (!guid) {
        *why = why->empty() ? "the disks and volumes of this host cannot be listed" : *why;
        return std::nullopt;
    }
    volume_record volume = volume_for(disk, *place, *guid, wish.name);
    *why = name_objection(volume.name);
    return why->empty() ? std::optional(std::move(volume)) : std::nullopt;
}
} // namespace

std::optional<new_volume> create_volume(const volume_wish &wish, const line_taker &say, std::string *why)
{
    *why = "the volumes of this host cannot be locked";
    const unique_fd lock = lock_volumes();
    if (!lock.is_open())
        return std::nullopt;
    if (!wish.is_plan)
        remove_leftovers(say);
    volume_place place;
    const auto disk = find_disk(wish.disk, why);
    if (!disk) {
        *why = wish.disk + ": " + *why;
        return std::nullopt;
    }
    auto volume = plan_volume(wish, *disk, &place, say, why);
    std::string device;
    if (volume && !wish.is_plan)
        *why = make_volume(*volume, place.pool, &device);
    if (!why->empty()) {
        *why = volume ? volume->name + ": " + *why : *why;
        return std::nullopt;
    }
    return new_volume{volume->name, device, volume->guid, disk->guid};
}
