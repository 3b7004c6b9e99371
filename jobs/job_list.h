// The jobs in the order in which they were added, with an index by type and name. Internal to this folder.
#pragma once

#include "jobs/job.h"

#include <list>
#include <map>
#include <memory>
#include <string_view>
#include <utility>

// Takes no lock. A job is shared with callers that have looked it up. Type and name of a listed job do not
// change.
class job_list {
public:
    using entry = std::shared_ptr<job_status>;

    void append(entry job);
    void clear();

    // The first job of that type and name (the local disk, the group, "" for the heartbeat); null if there is
    // none.
    entry find(int32_t type, std::string_view name) const;

    // Removes the job, which the caller still holds; a job that is not listed is ignored.
    void erase(const job_status *job);

    void erase_released();

    std::list<entry>::const_iterator begin() const { return jobs_.begin(); }
    std::list<entry>::const_iterator end() const { return jobs_.end(); }

private:
    // Equal keys are in the order in which they were added.
    using index = std::multimap<std::pair<int32_t, std::string_view>, std::list<entry>::iterator>;

    index::iterator erase(index::iterator at);

    std::list<entry> jobs_;
    index by_name_; // its keys point into the jobs
};
