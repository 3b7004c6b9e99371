#include "tools/volumes/volumes.h"

#include "tools/volumes/half_done.h"
#include "tools/volumes/host_view.h"
#include "tools/volumes/loop_device.h"
#include "tools/volumes/store.h"

namespace {
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

// Of a volume that cannot be deleted. Returns what is wrong with it then, "" for nothing.
std::string keep_after_all(volume_record &volume)
{
    std::optional<std::string> device;
    if (!is_store_there(volume))
        return "";
    volume.state = volume_state::whole;
    return save_volume(volume) ? show(volume, {}, &device) : "its record cannot be written";
}

std::string fault_of(const volume_record &volume)
{
    if (volume.state == volume_state::whole) {
        const std::string fault = store_fault(volume);
        return fault.empty() ? "it is not attached (qelc volume attach)" : fault;
    }
    return std::string("it was left half ") + (volume.state == volume_state::creating ? "made" : "deleted") +
           " (qelc volume attach removes it)";
}

// Of one whose record says that it goes.
std::string remove_all_of(volume_record &volume)
{
    std::string why = detach_volume(volume);
    if (why.empty())
        why = use_of(volume); // whoever came in between was told that it is a mirror
    if (why.empty())
        why = remove_marked(volume);
    const std::string problem = why.empty() ? "" : keep_after_all(volume);
    return why + (problem.empty() ? "" : "; and " + problem);
}

volume_device show_volume(const volume_record &volume, const std::vector<known_disk> &disks)
{
    std::optional<std::string> device;
    const bool was_there = loop_over(store_path(volume)).has_value();
    const std::string fault = show(volume, disks, &device);
    return {volume.name, device.value_or(""), fault, !was_there && fault.empty()};
}
} // namespace

std::string deletion_objection(const volume_record &volume)
{
    const std::string use = use_of(volume);
    return !use.empty() || !is_store_there(volume) ? use : removal_objection(volume);
}

std::string delete_volume(const std::string &name, const line_taker &say)
{
    const unique_fd lock = lock_volumes();
    if (!lock.is_open())
        return "the volumes of this host cannot be locked";
    remove_leftovers(say);
    auto volume = find_volume(name);
    if (!volume)
        return "there is no such volume";
    const std::string objection = deletion_objection(*volume);
    if (!objection.empty())
        return objection;
    if (!is_store_there(*volume)) {
        say(name + ": " + volume->place + " is not there; if it comes back, remove it yourself");
        return forget_volume(*volume) ? "" : "its record cannot be removed";
    }
    volume->state = volume_state::deleting;
    return save_volume(*volume) ? remove_all_of(*volume) : "its record cannot be written";
}

std::optional<std::vector<volume_device>> attach_volumes(const line_taker &say, std::string *why)
{
    *why = "the volumes or the disks of this host cannot be listed";
    const unique_fd lock = lock_volumes();
    if (!lock.is_open())
        return std::nullopt;
    std::vector<volume_device> all;
    if (!remove_leftovers(say))
        all.push_back({"volumes", "", "what a command has left half done could not be removed"});
    const auto volumes = load_volumes(bad_files::set_aside);
    const auto disks = known_disks();
    if (!volumes || !disks)
        return std::nullopt;
    for (const std::string &path : damaged_volumes())
        all.push_back(
            {path, "",
             "it is damaged, so its volume is not shown; mend it and give it its name again, or remove it"});
    for (const volume_record &volume : *volumes) {
        if (volume.state == volume_state::whole)
            all.push_back(show_volume(volume, *disks));
    }
    return all;
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
