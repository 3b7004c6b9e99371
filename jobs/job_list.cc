#include "jobs/job_list.h"

#include <algorithm>

namespace {
std::pair<int32_t, std::string_view> key_of(const job_status &job)
{
    switch (job.type) {
    case JOB_CDP_DISK:
        return {job.type, job.local};
    case JOB_CDP_GROUP:
        return {job.type, job.group};
    default:
        return {job.type, ""};
    }
}
} // namespace

void job_list::append(entry job)
{
    // In the index first: a job that is only in the list would fire, and nobody could find it.
    std::list<entry> added;
    added.push_back(std::move(job));
    by_name_.emplace(key_of(*added.front()), added.begin());
    jobs_.splice(jobs_.end(), added);
}

void job_list::clear()
{
    by_name_.clear();
    jobs_.clear();
}

job_list::entry job_list::find(int32_t type, std::string_view name) const
{
    const auto [first, last] = by_name_.equal_range({type, name});
    return first == last ? nullptr : *first->second;
}

job_list::index::iterator job_list::erase(index::iterator at)
{
    const auto job = at->second;
    const auto next = by_name_.erase(at);
    jobs_.erase(job);
    return next;
}

void job_list::erase(const job_status *job)
{
    const auto [first, last] = by_name_.equal_range(key_of(*job));
    const auto found =
        std::find_if(first, last, [job](const auto &named) { return named.second->get() == job; });
    if (found != last)
        erase(found);
}

void job_list::erase_released()
{
    for (auto at = by_name_.begin(); at != by_name_.end();)
        at = (*at->second)->released ? erase(at) : std::next(at);
}
