#include "tools/volumes/volumes.h"

#include "tools/common/human_text.h"
#include "tools/volumes/host_view.h"
#include "tools/volumes/loop_device.h"
#include "tools/volumes/place.h"
#include "tools/volumes/store.h"

#include <algorithm>

namespace {
// --- What uses a volume ------------------------------------------------------------------------------

// Why it must not go; "" for nothing.
std::string use_of(const volume_record &volume)
{
    const auto sources = sources_by_mirror();
    if (!sources)
        return "the relationships of this host cannot be read";
    for (const auto &[mirror, source] : *sources) {
        if (mirror == volume.guid)
            return "it is the mirror of " + source + "; end that first: qelc unprotect " + source;
        if (source == volume.guid)
            return "it is protected itself; end that first: qelc unprotect " + source;
    }
    return "";
}

// --- Removing ----------------------------------------------------------------------------------------

std::string detach(const volume_record &volume)
{
    const auto device = loop_over(store_path(volume));
    return device ? detach_loop(*device, store_path(volume)) : "";
}

// Of a volume that is marked so: what is there of it goes.
std::string remove_marked(const volume_record &volume)
{
    std::string why = detach(volume);
    if (why.empty())
        why = remove_store(volume);
    if (why.empty() && !forget_volume(volume))
        why = "it is gone, but its record cannot be removed";
    return why;
}

// What commands left that were ended before they were done.
bool remove_leftovers(const line_taker &say)
{
    const auto volumes = load_volumes(bad_files::set_aside);
    bool is_clean = volumes.has_value();
    for (const volume_record &volume : volumes.value_or(std::vector<volume_record>{})) {
        if (volume.state == volume_state::whole)
            continue;
        std::string why = volume.state == volume_state::deleting ? use_of(volume) : "";
        if (why.empty())
            why = remove_marked(volume);
        is_clean = is_clean && why.empty();
        if (!why.empty())
            say("volume " + volume.name + " was left half " +
                (volume.state == volume_state::creating ? "made" : "deleted") + ": " + why);
    }
    return is_clean;
}

std::optional<volume_record> find_volume(const std::string &name)
{
    const auto volumes = load_volumes(bad_files::set_aside);
    for (const volume_record &volume : volumes.value_or(std::vector<volume_record>{})) {
        if (volume.name == name)
            return volume;
    }
    return std::nullopt;
}

// --- Showing -----------------------------------------------------------------------------------------

// The other disk with the GUID of the volume; "" for none. DEVICE is the volume's own.
std::string twin_of(const volume_record &volume, const std::optional<std::string> &device,
                    const std::vector<known_disk> &disks)
{
    for (const known_disk &disk : disks) {
        if (disk.guid == volume.guid && disk.facts.path != device)
            return disk.facts.path;
    }
    return "";
}

// Why it is not shown, or not shown alone; "" for nothing. DEVICE is set if it is shown.
std::string show(const volume_record &volume, const std::vector<known_disk> &disks,
                 std::optional<std::string> *device)
{
    *device = loop_over(store_path(volume));
    const std::string twin = twin_of(volume, *device, disks);
    if (!twin.empty())
        return twin + " has the same signature; of two such disks neither can be a mirror";
    if (*device)
        return "";
    std::string why = store_fault(volume);
    if (why.empty())
        *device = attach_loop(store_path(volume), volume.size, volume.block, &why);
    return why;
}

void keep_after_all(volume_record &volume)
{
    std::optional<std::string> device;
    volume.state = volume_state::whole;
    save_volume(volume);
    show(volume, {}, &device);
}

// --- Making ------------------------------------------------------------------------------------------

std::string fault_of(const volume_record &volume)
{
    if (volume.state == volume_state::whole) {
        const std::string fault = store_fault(volume);
        return fault.empty() ? "it is not attached (qelc volume attach)" : fault;
    }
    return std::string("it was left half ") + (volume.state == volume_state::creating ? "made" : "deleted") +
           " (qelc volume attach removes it)";
}

bool reject(const line_taker &say, const std::string &what, const std::string &why)
{
    if (!why.empty())
        say(what + ": " + why);
    return !why.empty();
}

// Says what the volume may need. False after a line if it cannot be made.
bool has_room(const volume_wish &wish, const volume_place &place, uint64_t size, const line_taker &say)
{
    const std::string room = "the volume may need " + size_text(size) + "; " + size_text(place.free) + " are free";
    if (place.is_volatile && !wish.may_be_lost)
        return !reject(say, wish.where,
                       "what is there is lost when this host is restarted; --yes takes it nevertheless");
    if (place.kind == volume_kind::thick && place.free < size)
        return !reject(say, wish.where, room);
    say(wish.where + ": " + room +
        (place.free < size ? ". When they are used up, the mirror goes down until there is room" : ""));
    return true;
}

bool is_name_free(const std::string &name, const line_taker &say)
{
    if (!is_volume_name(name))
        return !reject(say, name, "a name has letters, digits and _ . + -, at most 100");
    return !(find_volume(name) && reject(say, name, "there is a volume with this name"));
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
} // namespace

std::optional<new_volume> create_volume(const volume_wish &wish, const line_taker &say)
{
    const unique_fd lock = lock_volumes();
    if (!lock.is_open())
        return std::nullopt;
    remove_leftovers(say);
    std::string why;
    volume_place place;
    const auto disk = find_disk(wish.disk, &why);
    if (!disk) {
        reject(say, wish.disk, why);
        return std::nullopt;
    }
    if (reject(say, wish.where, read_place(wish.where, disk->facts, &place)) ||
        !has_room(wish, place, disk->facts.sectors * 512, say))
        return std::nullopt;
    const auto guid = free_guid();
    if (!guid && reject(say, "volume", "the disks and volumes of this host cannot be listed"))
        return std::nullopt;
    volume_record volume = volume_for(*disk, place, *guid, wish.name);
    std::string device;
    if (!is_name_free(volume.name, say) || reject(say, volume.name, make_volume(volume, place.pool, &device)))
        return std::nullopt;
    return new_volume{volume.name, device, volume.guid, disk->guid};
}

bool delete_volume(const std::string &name, const line_taker &say)
{
    const unique_fd lock = lock_volumes();
    if (!lock.is_open())
        return false;
    remove_leftovers(say);
    auto volume = find_volume(name);
    if (!volume)
        return !reject(say, name, "there is no such volume (qelc volumes lists them)");
    if (!is_store_there(*volume) && !loop_over(store_path(*volume))) {
        say(name + ": " + volume->place + " is not there; if it comes back, remove it yourself");
        return forget_volume(*volume);
    }
    std::string why = use_of(*volume);
    if (const std::string lost = store_dependants(*volume); why.empty() && !lost.empty())
        why = "it has snapshots, which would be lost with it: " + lost;
    if (reject(say, name, why))
        return false;
    volume->state = volume_state::deleting;
    if (!save_volume(*volume))
        return false;
    why = detach(*volume);
    if (why.empty())
        why = use_of(*volume); // whoever came in between was told that it is a mirror
    if (why.empty())
        return !reject(say, name, remove_marked(*volume));
    keep_after_all(*volume);
    return !reject(say, name, why);
}

bool attach_volumes(const line_taker &say)
{
    const unique_fd lock = lock_volumes();
    if (!lock.is_open())
        return false;
    bool are_all_there = remove_leftovers(say);
    const auto volumes = load_volumes(bad_files::set_aside);
    const auto disks = known_disks();
    if (!volumes || !disks)
        return !reject(say, "volumes", "the volumes or the disks of this host cannot be listed");
    for (const volume_record &volume : *volumes) {
        std::optional<std::string> device;
        if (volume.state == volume_state::whole && reject(say, volume.name, show(volume, *disks, &device)))
            are_all_there = false;
    }
    return are_all_there;
}

std::optional<std::vector<volume_view>> view_volumes()
{
    const auto volumes = load_volumes(bad_files::left_alone);
    const auto disks = known_disks();
    const auto sources = sources_by_mirror();
    if (!volumes || !disks || !sources)
        return std::nullopt;
    std::vector<volume_view> views;
    for (const volume_record &volume : *volumes) {
        volume_view &view = views.emplace_back(volume_view{volume, store_taken(volume), {}, "", "", ""});
        view.device = loop_over(store_path(volume));
        if (!view.device)
            view.fault = fault_of(volume);
        if (const auto found = sources->find(volume.guid); found != sources->end())
            view.source = found->second;
        for (const known_disk &disk : *disks) {
            if (!view.source.empty() && disk.guid == view.source)
                view.source_name = disk.facts.name;
        }
    }
    return views;
}
