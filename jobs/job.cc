#include "jobs/job.h"

#include "base/log.h"

#include <new>

std::unique_ptr<job_status> _alloc_job_status()
{
    std::unique_ptr<job_status> job(new (std::nothrow) job_status);
    if (!job)
        log_error("Failed to allocate memory for job_status");
    return job;
}
