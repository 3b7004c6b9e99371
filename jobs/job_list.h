// The jobs in the order in which they came, each found by its type and name at once. Internal to this folder.
#pragma once

#include "jobs/timer.h"

#include <list>
#include <map>
#include <string_view>
#include <utility>

// Locks nothing. A job is shared with whoever looked it up; type and name of one that is listed do not
// change.
class job_list {
public:
    using entry = std::shared_ptr<job_status>;

    void append(entry job);
    void clear();

    // The first of that type and name (the local disk, the group, "" for the heartbeat); null for none.
    entry find(int32_t type, std::string_view name) const;

    // Unlinks the job, which somebody still holds; one that is not listed is ignored.
    void erase(const job_status *job);

    void erase_released();

    std::list<entry>::const_iterator begin() const { return jobs_.begin(); }
    std::list<entry>::const_iterator end() const { return jobs_.end(); }

private:
    // Equal keys stand in the order in which they came.
    using index = std::multimap<std::pair<int32_t, std::string_view>, std::list<entry>::iterator>;

    index::iterator erase(index::iterator at);

    std::list<entry> jobs_;
    index by_name_; // its keys are texts of the jobs
};
