#include "base/thread.h"
#include "client/scan_thread.h"
#include "jobs/heartbeat_job.h"
#include "jobs/timer.h"
#include "tests/support/captured_log.h"
#include "tests/support/eventually.h"
#include "tests/unit/fake_clock.h"

#include <gtest/gtest.h>

#include <vector>

namespace {
std::atomic<int> scans_asked_for{0};
std::vector<const job_status *> fired;
int32_t handler_status = 0;

int32_t note_firing(const job_status *job)
{
    fired.push_back(job);
    return handler_status;
}

job_status *add_job(int32_t type, int64_t next_time, uint32_t interval, const char *name = "")
{
    std::unique_ptr<job_status> job = _alloc_job_status();
    job->type = type;
    job->handler = note_firing;
    job->next_time = next_time;
    job->interval = interval;
    (type == JOB_CDP_GROUP ? job->group : job->local) = name;
    job_status *added = job.get();
    EXPECT_EQ(job_add(std::move(job)), 0);
    return added;
}

struct Timer : testing::Test {
    Timer()
    {
        fired.clear();
        handler_status = 0;
        scans_asked_for = 0;
        take_log();
    }
    ~Timer() override { job_free_all(); }
};
} // namespace

// In place of the scan thread's own.
void wake_scan_thread()
{
    ++scans_asked_for;
}

namespace {
TEST_F(Timer, HeartbeatFiresWithItsBackoffAndAsksForAScan)
{
    job_status *job = add_job(JOB_HEARTBEAT, 0, 5);
    const std::pair<uint32_t, int64_t> backoffs_and_gaps[] = {{1, 5}, {2, 6}, {4, 7}, {128, 69}, {0, 5}};
    int64_t now = 1000;
    for (const auto &[backoff, gap] : backoffs_and_gaps) {
        job->backoff = backoff;
        EXPECT_EQ(timer_pass(now), now + gap) << backoff;
        EXPECT_EQ(timer_pass(now + gap - 1), now + gap) << "not due yet";
        EXPECT_EQ(heartbeat_healthy(), backoff == 1);
        now += gap;
    }
    EXPECT_EQ(fired, std::vector<const job_status *>(5, nullptr)) << "a heartbeat is handed null";
    EXPECT_EQ(scans_asked_for, 5);
    EXPECT_EQ(heartbeat_registered(), 1);
}

TEST_F(Timer, MissedPeriodsAreNotCaughtUp)
{
    job_status *job = add_job(JOB_CDP_DISK, 100, 10, "sdb");
    job->mirror = "mirror";
    EXPECT_EQ(timer_pass(1000), 1010);
    EXPECT_EQ(take_log(LOG_DEBUG), "7 [#0]2 next: -900, timeout: 10(mirror)\n"
                                   "6 Background task: CDP task for disk sdb - mirror fired!\n");
    EXPECT_EQ(fired, std::vector<const job_status *>{job});
    EXPECT_EQ(scans_asked_for, 0);
}

TEST_F(Timer, FailedOrUnknownJobStaysAndIsReArmed)
{
    handler_status = -1;
    add_job(JOB_CDP_GROUP, 0, 10, "g");
    add_job(3, 0, 20);
    EXPECT_EQ(timer_pass(100), 110);
    EXPECT_EQ(timer_pass(110), 120);
    EXPECT_EQ(fired.size(), 2u);
    EXPECT_EQ(take_log(), "3 Failed to process job\n3 Unkown job type: 3\n3 Failed to process job\n"
                          "3 Failed to process job\n");
}

TEST_F(Timer, ReleasedJobsAreListedUntilTheNextPassWhichFiresNone)
{
    add_job(JOB_HEARTBEAT, 0, 5);
    add_job(JOB_CDP_DISK, 0, 5, "sdb");
    job_release_all();
    EXPECT_TRUE(job_find_cdp("sdb"));
    EXPECT_EQ(timer_pass(100), 700);
    EXPECT_EQ(fired.size(), 0u);
    EXPECT_FALSE(job_find_cdp("sdb"));
    EXPECT_FALSE(heartbeat_registered());
}

TEST_F(Timer, LookupsGoByTypeAndNameAndTakeTheFirst)
{
    const job_status *group = add_job(JOB_CDP_GROUP, 0, 5, "same");
    const job_status *first = add_job(JOB_CDP_DISK, 0, 5, "same");
    const job_status *second = add_job(JOB_CDP_DISK, 0, 5, "same");
    add_job(JOB_CDP_DISK, 0, 5, "sam");
    EXPECT_EQ(job_find_cdp("same").get(), first);
    EXPECT_EQ(job_find_grp("same").get(), group);
    EXPECT_EQ(job_find_grp("other"), nullptr);
    EXPECT_EQ(job_find_cdp(nullptr), nullptr);
    const auto held = job_find_cdp("same");
    for (const job_status *removed : {held.get(), held.get(), static_cast<job_status *>(nullptr)})
        job_remove(removed); // only the first time it is on the list
    EXPECT_EQ(job_find_cdp("same").get(), second);
}

// The thread never ends, so one test starts it, and that test stands last.
TEST_F(Timer, ThreadFiresAtTheDeadlineAndWhenAJobIsAdded)
{
    const auto waits_until = [](int64_t deadline) {
        return eventually([deadline] {
            const std::lock_guard guard(g_timeout_thread_running_lock); // held while the thread does not wait
            return fake_clock_deadline() == deadline && g_timeout_thread_running == 1;
        });
    };
    fake_clock_set_monotonic(100);
    pthread_t thread;
    ASSERT_EQ(start_thread(&thread, _timeout_thread, nullptr), 0);
    ASSERT_TRUE(waits_until(700)) << "ten minutes without a job";
    add_job(JOB_CDP_DISK, 100, 50, "sdb");
    ASSERT_TRUE(waits_until(150));
    EXPECT_EQ(fired.size(), 1u);
    fake_clock_set_monotonic(150);
    ASSERT_TRUE(waits_until(200));
    EXPECT_EQ(fired.size(), 2u);
}
} // namespace
