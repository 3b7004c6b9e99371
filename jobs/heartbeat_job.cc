#include "jobs/heartbeat_job.h"

#include "jobs/timer.h"

std::mutex g_heartbeat_running_lock;
int32_t g_heartbeat_running = 0;

std::shared_ptr<job_status> job_find_heartbeat()
{
    return job_find(JOB_HEARTBEAT, "");
}

bool heartbeat_stays()
{
    return job_find_kept(JOB_HEARTBEAT, "") != nullptr;
}

void job_hurry_heartbeat(int64_t next_time)
{
    job_hurry(JOB_HEARTBEAT, "", next_time);
}

int heartbeat_registered()
{
    return job_find_heartbeat() ? 1 : 0;
}

int heartbeat_healthy()
{
    const auto job = job_find_heartbeat();
    return job && job->backoff == 1 ? 1 : 0;
}
