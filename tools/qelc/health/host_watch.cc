#include "tools/qelc/health/host_watch.h"

#include "base/clock.h"
#include "config/config.h"
#include "protocol/commands.h"
#include "tools/qelc/host.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>

namespace {
using record_list = std::vector<mirror_record>;

constexpr int64_t nanoseconds = 1'000'000'000; // of a second

std::string name_of_this_host()
{
    char name[HOST_NAME_MAX + 1] = "";
    gethostname(name, sizeof name - 1);
    return name;
}

record_list records_here()
{
    return load_mirrors(bad_files::left_alone).value_or(record_list{});
}

// For the names of disks, while the daemon tells none: those that they had last.
std::vector<mirror_view> recorded_views()
{
    std::vector<mirror_view> views;
    for (const mirror_record &one : records_here())
        views.push_back({.disk = one.src_path.substr(one.src_path.rfind('/') + 1),
                         .guids = {one.src_guid, one.dest_guid}});
    return views;
}

std::vector<mirror_view> views_of(const host_health &seen)
{
    if (!seen.mirrors)
        return recorded_views();
    std::vector<mirror_view> views;
    for (const mirror_health &one : *seen.mirrors)
        views.push_back(one.view);
    return views;
}

// A supervisor starts a new working process in a moment. One that does not answer in time is not waited for
// again.
bool is_being_replaced(const verb_end &end)
{
    return end.status == exit_no_answer && end.reason.find("time-out") == std::string::npos &&
           is_daemon_running();
}
} // namespace

// --- Asking ------------------------------------------------------------------------------------------

void host_watch::take_answers(host_health &seen) const
{
    host at(peer_);
    const std::unique_ptr<request> reply = at.ask(command::local_list);
    seen.answers = true;
    require_success(*reply, see_log);
    seen.manager = manager_in(*reply);
    if (!seen.manager)
        at.require_adopted();
    seen.is_adopted = true;
    const host_view &view = at.view();
    const record_list records = is_local_ ? records_here() : record_list{};
    seen.mirrors.emplace();
    for (const mirror_view &mirror : view.mirrors)
        seen.mirrors->push_back(health_of(mirror, records));
    seen.databases = view.databases;
}

void host_watch::ask(host_health &seen) const
{
    constexpr unsigned pause_ms = 100, most_tries = 100;
    for (unsigned tries = 1;; ++tries, clock_sleep_ms(pause_ms)) {
        try {
            return take_answers(seen);
        } catch (const verb_end &end) {
            if (end.status == exit_not_adopted) {
                seen.is_adopted = false;
                seen.mirrors.emplace(); // it can have none
            }
            seen.failure = end;
            seen.is_barred = end.reason.ends_with(strerror(EACCES));
            if (!is_local_ || tries == most_tries || seen.is_barred || !is_being_replaced(end))
                return;
        }
        seen.failure.reset();
        seen.answers = false;
    }
}

// --- Looking -----------------------------------------------------------------------------------------

void host_watch::look_at_snapshots(host_health &seen)
{
    constexpr size_t most_old_marks = 20;
    seen.marks.clear();
    seen.kept.clear();
    const bool is_read = journal_.read_new([&](const journal_mark &mark) {
        add_mark(marks_, mark);
        seen.marks.push_back(mark);
        if (!has_looked_ && seen.marks.size() > most_old_marks)
            seen.marks.erase(seen.marks.begin());
    });
    has_looked_ = true;
    const auto kept = is_read ? load_snapshots(bad_files::left_alone) : std::nullopt;
    if (!kept)
        return;
    seen.snapshots = series_of(views_of(seen), marks_, *kept);
    for (const snapshot &one : *kept) {
        if (one.is_complete)
            seen.kept.insert(one.name);
    }
}

void host_watch::look_for_heartbeat(host_health &seen)
{
    if (seen.manager)
        seen.heartbeat = find_heartbeat(*seen.manager);
    asked_manager_ = clock_monotonic();
}

void host_watch::look_here(host_health &seen)
{
    seen.process = find_daemon();
    if (seen.process) // an adoption writes the configuration
        seen.beats_since =
            std::max(seen.process->since, static_cast<time_t>(landmarks_.config / nanoseconds));
    look_for_heartbeat(seen);
    if (access(config_path, R_OK) == 0 || errno != EACCES)
        seen.config = check_config(config_path);
    if (const auto records = load_mirrors(bad_files::left_alone))
        seen.recorded_mirrors = records->size();
    look_at_snapshots(seen);
}

host_health host_watch::look()
{
    host_health seen;
    seen.name = is_local_ ? name_of_this_host() : peer_.host;
    seen.is_local = is_local_;
    landmarks_ = landmarks_now();
    ask(seen);
    seen.time = time(nullptr);
    if (is_local_)
        look_here(seen);
    asked_ = clock_monotonic();
    last_ = seen;
    return seen;
}

// --- Without asking ----------------------------------------------------------------------------------

host_watch::landmarks host_watch::landmarks_now() const
{
    landmarks now;
    if (!is_local_)
        return now;
    now.worker = find_worker();
    struct stat facts {};
    if (stat(config_path, &facts) == 0)
        now.config = facts.st_mtim.tv_sec * nanoseconds + facts.st_mtim.tv_nsec;
    for (const mirror_record &one : records_here())
        now.mirrors.emplace(one.src_guid, one.dest_guid);
    return now;
}

host_health host_watch::glance()
{
    // Seconds, with what does not show by itself that it changes: some hosts, and the manager.
    constexpr int64_t patience = 5;
    if (asked_ == 0 || landmarks_now() != landmarks_)
        return look();
    const record_list records = is_local_ ? records_here() : record_list{};
    const bool is_seen =
        is_local_ && !last_.failure && last_.mirrors && are_same_mirrors(*last_.mirrors, records);
    if (!is_seen && clock_monotonic() - asked_ >= patience)
        return look();
    last_.time = time(nullptr);
    if (is_seen) {
        for (mirror_health &one : *last_.mirrors)
            one = seen_again(one, record_of(one, records));
    }
    if (is_local_)
        look_at_snapshots(last_);
    if (is_local_ && clock_monotonic() - asked_manager_ >= patience)
        look_for_heartbeat(last_);
    return last_;
}
