#include "platform/linux/mirror/engine.h"

#include "platform/linux/host/boundary.h"
#include "platform/linux/host/sysfs.h"
#include "platform/linux/mirror/page_samples.h"
#include "platform/linux/mirror/rules.h"
#include "platform/linux/mirror/worker.h"
#include "platform/linux/state/lock.h"
#include "platform/linux/state/progress.h"

#include <cerrno>
#include <cstring>
#include <map>
#include <memory>

namespace {

constexpr off_t place_of_owner = 1;

using mirror_map = std::map<std::string, std::shared_ptr<mirror>>; // by source

struct engine {
    std::mutex lock;
    unique_fd ownership;
    mirror_map mirrors;
};

// Never destroyed, because its threads run until the process ends.
engine &the_engine()
{
    static auto *one = new engine;
    return *one;
}

// The caller holds the engine's lock.
bool is_taken(const mirror_map &mirrors, const std::string &guid)
{
    for (const auto &[src_guid, one] : mirrors) {
        const std::lock_guard held(one->lock);
        if (src_guid == guid || one->record.dest_guid == guid)
            return true;
    }
    return false;
}

mirror_map new_mirror(const mirror_record &record)
{
    mirror_map fresh;
    const auto one = std::make_shared<mirror>();
    one->record = record;
    one->copied = record.position;
    fresh.emplace(record.src_guid, one);
    return fresh;
}

// All or nothing: a mirror that is here already would contradict its own record at the next attempt.
bool take_over_mirrors(engine &all)
{
    const auto records = load_mirrors(bad_files::set_aside);
    if (!records)
        return false;
    mirror_map found;
    std::vector<std::string> sources;
    for (const mirror_record &record : *records) {
        sources.push_back(record.src_guid);
        if (is_taken(found, record.src_guid) || is_taken(found, record.dest_guid)) {
            log_error("Relationship %s -> %s shares a disk with another one", record.src_guid.c_str(),
                      record.dest_guid.c_str());
            set_aside_mirror(record);
            continue;
        }
        found.merge(new_mirror(record));
    }
    remove_other_trackers(sources);
    all.mirrors = std::move(found);
    return true;
}

// A worker that could not be started is started at the next call.
void start_workers(engine &all)
{
    for (const auto &[src_guid, one] : all.mirrors) {
        std::unique_lock held(one->lock);
        const bool needs_one = !one->worker && !one->leaving;
        held.unlock();
        if (needs_one)
            start_worker(*one);
    }
}

enum class role { owner, reader, no_folder, failed };

// The caller holds the engine's lock.
role take_role(engine &all)
{
    if (!all.ownership.is_open()) {
        unique_fd ownership = try_lock_places(twinvault, {place_of_owner});
        if (!ownership.is_open() && errno != EAGAIN && errno != ENOENT)
            log_error("Cannot lock %s: %s", twinvault.path, strerror(errno));
        if (!ownership.is_open())
            return errno == EAGAIN ? role::reader : errno == ENOENT ? role::no_folder : role::failed;
        if (!take_over_mirrors(all))
            return role::failed;
        all.ownership = std::move(ownership);
    }
    start_workers(all);
    return role::owner;
}

const char *reason_of(role role)
{
    return role == role::reader ? "another process runs the mirrors of this host"
                                : "the mirrors of this host cannot be read";
}

// The mirror, if this process may change it; null after a log line.
std::shared_ptr<mirror> find_mirror(const char *purpose, const std::string &src_guid)
{
    engine &all = the_engine();
    const std::lock_guard held(all.lock);
    const role mine = take_role(all);
    const auto found = all.mirrors.find(src_guid);
    if (mine == role::owner && found != all.mirrors.end())
        return found->second;
    const bool is_unknown = mine == role::owner || mine == role::no_folder;
    log_error("Cannot %s disk %s: %s", purpose, escaped(src_guid).c_str(),
              is_unknown ? "it has no mirror" : reason_of(mine));
    return nullptr;
}

// The caller holds the mirror's lock. False after a log line.
bool change_state(mirror &one, const char *purpose, sync_state state, uint64_t position)
{
    mirror_record changed = one.record;
    changed.state = state;
    changed.position = position;
    if (one.leaving || !save_mirror(changed)) {
        log_error("Cannot %s disk %s", purpose, one.record.src_guid.c_str());
        return false;
    }
    one.record = std::move(changed);
    ++one.orders;
    one.changed.notify();
    return true;
}

// "" if both may be used.
std::string objection_to(const std::string &src_guid, const std::string &dest_guid)
{
    for (const std::string &guid : {src_guid, dest_guid}) {
        if (guid.empty() || guid.size() > longest_guid_text)
            return "a GUID has 1 to " + std::to_string(longest_guid_text) + " characters";
    }
    if (src_guid == dest_guid)
        return "a disk cannot be its own mirror";
    engine &all = the_engine();
    const std::lock_guard held(all.lock);
    const role mine = take_role(all);
    if (mine == role::reader || mine == role::failed)
        return reason_of(mine);
    for (const std::string &guid : {src_guid, dest_guid}) {
        if (is_taken(all.mirrors, guid))
            return "disk " + guid + " is in a mirror relationship already";
    }
    return "";
}

std::string add_mirror(const mirror_record &record)
{
    if (!make_state_folder(twinvault))
        return "the relationship cannot be kept";
    // Check again: if the folder is new, another process may have been faster.
    std::string why = objection_to(record.src_guid, record.dest_guid);
    if (!why.empty())
        return why;
    engine &all = the_engine();
    const std::lock_guard held(all.lock);
    mirror_map fresh = new_mirror(record);
    if (!forget_samples(record.src_guid) || !save_mirror(record))
        return "the relationship cannot be kept";
    // From here on nothing needs memory. A worker that cannot be started now is started at the next call.
    start_worker(*fresh.begin()->second);
    all.mirrors.merge(fresh);
    return "";
}

using std::chrono::steady_clock;

// Waits until the worker has proven a mirror level that is level from time to time.
mirror_view view_until(mirror &one, steady_clock::time_point end)
{
    std::unique_lock held(one.lock);
    const uint64_t levels = one.levels;
    mirror_view view = view_of(one);
    if (view.record.state == one.record.state)
        return view;
    one.changed.notify(); // a look at the disk is due
    const bool is_hopeful = one.tracker && one.levels_in_vain != levels;
    for (auto now = steady_clock::now(); is_hopeful && one.levels == levels && now < end;
         now = steady_clock::now())
        one.levelled.wait(held, std::chrono::ceil<std::chrono::milliseconds>(end - now));
    if (one.levels == levels && is_hopeful && steady_clock::now() >= end)
        one.levels_in_vain = levels;
    return one.levels == levels ? view_of(one) : view_when_level(one);
}

} // namespace

std::vector<mirror_view> list_mirrors(std::chrono::milliseconds limit)
{
    const auto end = steady_clock::now() + limit;
    engine &all = the_engine();
    std::unique_lock held(all.lock);
    const role mine = take_role(all);
    const mirror_map mirrors = all.mirrors;
    held.unlock();
    std::vector<mirror_view> views;
    for (const auto &[src_guid, one] : mirrors)
        views.push_back(view_until(*one, end));
    if (mine != role::reader)
        return views;
    const auto records = load_mirrors(bad_files::left_alone);
    for (const mirror_record &record : records.value_or(std::vector<mirror_record>{}))
        views.push_back(view_of(record));
    return views;
}

bool protect_disk(const std::string &src_guid, const std::string &dest_guid)
{
    // Looking at disks can take seconds, so it is done without the engine's lock.
    static std::mutex one_at_a_time;
    const std::lock_guard held(one_at_a_time);
    std::string why = objection_to(src_guid, dest_guid);
    const auto record = why.empty() ? new_relationship(src_guid, dest_guid, &why) : std::nullopt;
    if (record)
        why = add_mirror(*record);
    if (why.empty()) {
        log_info("Disk %s is mirrored to %s", src_guid.c_str(), dest_guid.c_str());
        return true;
    }
    log_error("Cannot mirror disk %s to %s: %s", escaped(src_guid).c_str(), escaped(dest_guid).c_str(),
              why.c_str());
    return false;
}

bool unprotect_disk(const std::string &src_guid)
{
    const auto one = find_mirror("remove the protection of", src_guid);
    if (!one)
        return false;
    {
        const std::lock_guard held(one->lock);
        if (std::exchange(one->leaving, true)) {
            log_error("The protection of disk %s is being removed already", src_guid.c_str());
            return false;
        }
    }
    end_worker(*one);
    engine &all = the_engine();
    const std::lock_guard held(all.lock);
    bool is_forgotten = false;
    end_at_exception("The removal of a mirror", [&] {
        remove_progress(src_guid);
        remove_tracker(
            src_guid); // first: a relationship without tracker can be kept, not the other way round
        is_forgotten = forget_samples(src_guid) && forget_mirror(one->record);
    });
    if (!is_forgotten) {
        const std::lock_guard held_one(one->lock);
        one->leaving = false; // the next call starts its worker again
        return false;
    }
    all.mirrors.erase(src_guid);
    log_info("Disk %s is mirrored no more", src_guid.c_str());
    return true;
}

bool resync_disk(const std::string &src_guid)
{
    const char purpose[] = "resynchronise";
    const auto one = find_mirror(purpose, src_guid);
    if (!one)
        return false;
    const std::lock_guard held(one->lock);
    if (!forget_samples(src_guid) || !change_state(*one, purpose, sync_state::copying, 0))
        return false;
    one->copied = 0;
    return true;
}

bool stop_resync(const std::string &src_guid)
{
    const char purpose[] = "stop the synchronisation of";
    const auto one = find_mirror(purpose, src_guid);
    if (!one)
        return false;
    const std::lock_guard held(one->lock);
    const sync_state state = view_of(*one).record.state;
    const bool is_under_way = state == sync_state::copying || state == sync_state::recovering;
    return !is_under_way || change_state(*one, purpose, sync_state::cancelled, one->record.position);
}

namespace {

// Null with errno.
std::shared_ptr<mirror> find_by_dest(const std::string &dest_guid)
{
    engine &all = the_engine();
    const std::lock_guard held(all.lock);
    if (take_role(all) != role::owner) {
        errno = ENOTSUP;
        return nullptr;
    }
    for (const auto &[src_guid, one] : all.mirrors) {
        const std::lock_guard held_one(one->lock);
        if (one->record.dest_guid == dest_guid)
            return one;
    }
    errno = ENOENT;
    return nullptr;
}

} // namespace

unique_fd hold_at_level(const std::string &dest_guid, std::chrono::milliseconds limit, hold_manner manner)
{
    const auto end = steady_clock::now() + limit;
    const auto one = find_by_dest(dest_guid);
    if (!one)
        return unique_fd();
    hold_request request{.hurries = manner == hold_in_haste};
    std::unique_lock held(one->lock);
    if (one->waiting) {
        errno = EBUSY;
        return unique_fd();
    }
    one->waiting = &request;
    one->changed.notify();
    for (auto left = limit; !request.hold.is_open() && left.count() > 0 && !one->leaving;) {
        one->served.wait(held, left);
        left = std::chrono::duration_cast<std::chrono::milliseconds>(end - steady_clock::now());
    }
    if (one->waiting == &request)
        one->waiting = nullptr;
    errno = ETIMEDOUT;
    return std::move(request.hold);
}
