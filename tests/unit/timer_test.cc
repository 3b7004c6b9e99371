#include "base/thread.h"
#include "client/scan_thread.h"
#include "jobs/timer.h"
#include "tests/unit/captured_log.h"
#include "tests/unit/fake_clock.h"

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <thread>
#include <vector>

namespace {
std::atomic<int> scans_asked_for{0};
std::atomic<int> fired_count{0};
std::vector<const job_status *> fired;
int32_t handler_status = 0;

int32_t note_firing(const job_status *job)
{
    ++fired_count;
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
    void SetUp() override
    {
        fired.clear();
        fired_count = 0;
        handler_status = 0;
        scans_asked_for = 0;
        take_log();
    }
    void TearDown() override { job_free_all(); }
};

bool reached(const std::function<bool()> &condition)
{
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > limit)
            return false;
        std::this_thread::yield();
    }
    return true;
}
} // namespace

// In place of the scan thread's own.
void wake_scan_thread()
{
    ++scans_asked_for;
}

namespace {
TEST_F(Timer, EmptyListWaitsTenMinutes)
{
    EXPECT_EQ(timer_pass(50), 650);
    EXPECT_EQ(take_log(LOG_DEBUG), "");
}

TEST_F(Timer, HeartbeatFiresWithItsBackoffAndAsksForAScan)
{
    job_status *job = add_job(JOB_HEARTBEAT, 0, 5);
    const struct {
        uint32_t backoff;
        int64_t gap;
    } cases[] = {{1, 5}, {2, 6}, {4, 7}, {128, 69}, {0, 5}};
    int64_t now = 1000;
    for (const auto &row : cases) {
        job->backoff = row.backoff;
        EXPECT_EQ(timer_pass(now), now + row.gap) << row.backoff;
        EXPECT_EQ(timer_pass(now + row.gap - 1), now + row.gap) << "not due yet";
        now += row.gap;
    }
    EXPECT_EQ(fired, std::vector<const job_status *>(std::size(cases), nullptr))
        << "a heartbeat is handed null";
    EXPECT_EQ(scans_asked_for, 5);
    EXPECT_EQ(take_log(), "");
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

TEST_F(Timer, EarliestJobDecidesWhenToWake)
{
    add_job(JOB_CDP_DISK, 500, 10, "late");
    job_status *group = add_job(JOB_CDP_GROUP, 100, 300, "g");
    add_job(JOB_CDP_DISK, 5000, 10, "beyond");
    EXPECT_EQ(timer_pass(0), 100);
    EXPECT_EQ(timer_pass(100), 400);
    EXPECT_EQ(fired, std::vector<const job_status *>{group});
    EXPECT_EQ(take_log(LOG_INFO), "6 Background task: CDP task for group g fired!\n");
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
    add_job(JOB_CDP_GROUP, 0, 5, "same");
    job_status *first = add_job(JOB_CDP_DISK, 0, 5, "same");
    job_status *second = add_job(JOB_CDP_DISK, 0, 5, "same");
    EXPECT_EQ(job_find_cdp("same"), first);
    job_remove(first);
    EXPECT_EQ(job_find_cdp("same"), second);
    job_remove(first); // no longer on the list
    job_remove(nullptr);
    EXPECT_EQ(job_find_cdp("same"), second);
    EXPECT_EQ(job_find_grp("same")->type, JOB_CDP_GROUP);
    EXPECT_EQ(job_find_grp("other"), nullptr);
    EXPECT_EQ(job_find_cdp(nullptr), nullptr);
    EXPECT_EQ(job_find_grp(nullptr), nullptr);
    EXPECT_EQ(job_add(nullptr), -1);
}

TEST_F(Timer, HeartbeatIsHealthyOnlyWithoutBackoff)
{
    EXPECT_EQ(heartbeat_healthy(), 0);
    job_status *job = add_job(JOB_HEARTBEAT, 0, 5);
    EXPECT_EQ(heartbeat_registered(), 1);
    EXPECT_EQ(heartbeat_healthy(), 0);
    job->backoff = 1;
    EXPECT_EQ(heartbeat_healthy(), 1);
    job->backoff = 2;
    EXPECT_EQ(heartbeat_healthy(), 0);
}

// The thread never ends, so one test starts it, and that test stands last.
TEST_F(Timer, ThreadFiresAtTheDeadlineAndWhenAJobIsAdded)
{
    fake_clock_set_monotonic(100);
    pthread_t thread;
    ASSERT_EQ(start_thread(&thread, _timeout_thread, nullptr), 0);
    ASSERT_TRUE(reached([] { return fake_clock_deadline() == 700; }));
    {
        const std::lock_guard guard(g_timeout_thread_running_lock);
        EXPECT_EQ(g_timeout_thread_running, 1);
    }
    add_job(JOB_CDP_DISK, 100, 50, "sdb");
    ASSERT_TRUE(reached([] { return fake_clock_deadline() == 150; }));
    EXPECT_EQ(fired_count, 1);
    fake_clock_advance(50);
    ASSERT_TRUE(reached([] { return fake_clock_deadline() == 200; }));
    EXPECT_EQ(fired_count, 2);
    job_free_all();
    wake_timer();
    ASSERT_TRUE(reached([] { return fake_clock_deadline() == 750; }));
    const std::string log = take_log(LOG_DEBUG);
    EXPECT_NE(
        log.find("7 Waiting for timeout(50 second) or condition\n7 pthread_cond_timedwait() unblocked\n"),
        std::string::npos);
}
} // namespace
