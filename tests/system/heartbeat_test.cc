// The heartbeat itself, on a clock that stands still: no period is waited for.
#include "base/log.h"
#include "client/addresses.h"
#include "client/inventory.h"
#include "config/config.h"
#include "jobs/heartbeat.h"
#include "jobs/heartbeat_job.h"
#include "jobs/manager_connection.h"
#include "jobs/reset.h"
#include "jobs/timer.h"
#include "tests/scripted/script.h"
#include "tests/support/manager.h"
#include "tests/support/requests.h"
#include "tests/support/system_log.h"
#include "tests/unit/fake_clock.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/tcp.h>

// The rest of the clock that stands still: here no disk is written to and waited for.
void clock_sleep_ms(unsigned) {}

namespace {
class heartbeat : public testing::Test {
protected:
    heartbeat()
    {
        manager.answer(0, manager_document("M-1", "127.0.0.1"));
        g_client = &client;
        client.guid = "C-1";
        client.alias = "A";
        client.server_port = client_port + 1;
        client.manager = std::make_unique<qel_manager>();
        client.manager->guid = "M-1";
        client.manager->ip_list = {{htonl(INADDR_LOOPBACK)}};
        g_heartbeat_running = 1;
        fake_clock_set_monotonic(1000);
        debug_on();
        EXPECT_EQ(_register_for_heartbeat(), 0);
        job = job_find_heartbeat();
        timer_pass(1000); // the first beat
        log.expect(LOG_DEBUG, end);
        see_workers();
    }

    ~heartbeat() override { see_workers(); }

    // Workers that have ended have let go of these: what they did is seen from here on, also by a sanitizer.
    void see_workers() { const std::scoped_lock held(client.lock, client.content_lock, g_inventory.lock); }

    // One beat, until its worker has ended.
    void beat()
    {
        const size_t mark = log.size();
        EXPECT_EQ(process_heartbeat(nullptr), 0);
        log.expect(LOG_DEBUG, end, mark);
        see_workers();
    }

    static constexpr char end[] = "func: _process_heartbeat line: * msg: tid:*:Complete heartbeat";
    script world;
    system_log log;
    fake_manager manager;
    qel_t client;
    std::shared_ptr<job_status> job;
};
} // namespace

TEST_F(heartbeat, FailuresSlowItDownAndTheFirstSuccessEndsThat)
{
    std::list<qel_addr> nowhere;
    log.tolerate("Failed to connect to manager 'M-1'");
    client.manager->ip_list.swap(nowhere);
    for (const auto &[before, after] : {std::pair(2U, 4U), std::pair(96U, 128U)}) {
        job->backoff = before;
        beat();
        EXPECT_EQ(job->backoff, after) << "doubled, to a limit";
        EXPECT_EQ(heartbeat_healthy(), 0);
    }
    client.manager->ip_list.swap(nowhere);
    job->next_time = 1069;
    beat();
    EXPECT_EQ(heartbeat_healthy(), 1);
    EXPECT_EQ(job->next_time, 1005) << "at once";
}

TEST_F(heartbeat, AnswersChangeTheManagerOnlyAsFarAsTheyMay)
{
    const struct {
        uint16_t status;
        std::string answer, addresses, error;
    } cases[] = {
        {7, "", "127.0.0.1", "Tessaron server return error"},
        {0, "nonsense", "127.0.0.1", "Failed to fetch manager from xml"},
        {0, manager_document("M-2", "127.0.0.2"), "127.0.0.1", ""},
        {0, manager_document("M-1", "127.0.0.1 127.0.0.2"), "127.0.0.1", ""}, // only the first address counts
        {0, manager_document("M-1", "127.0.0.3 127.0.0.2"), "127.0.0.3 127.0.0.2", ""},
    };
    log.tolerate("Failed to parse xml document");
    for (const auto &one : cases) {
        manager.answer(one.status, one.answer);
        beat();
        if (!one.error.empty())
            log.expect(LOG_ERR, one.error);
        EXPECT_EQ(join_addresses(client.manager->ip_list), one.addresses) << one.answer;
    }
    log.expect(LOG_WARNING, "'M-2' is not the right manager, 'M-1' is");
    EXPECT_EQ(join_addresses(qel_load()->manager->ip_list), "127.0.0.3 127.0.0.2");
}

TEST_F(heartbeat, SlowManagerDoesNotStopTheNextAndOneThatHasGoneIsNoticed)
{
    manager.stall(true);
    for (size_t count = 2; count < 4; ++count) { // the first has been answered
        EXPECT_EQ(process_heartbeat(nullptr), 0);
        EXPECT_TRUE(eventually([&] { return manager.heartbeats().size() == count; }));
    }
    manager.stall(false);
    log.expect_steps(LOG_DEBUG, {end, end, end});
    see_workers();

    manager_connection connection;
    ASSERT_EQ(connect_to_manager(connection, client.manager->ip_list, client_port + 1, "M-1"), 0);
    int on = 0, idle = 0;
    socklen_t size = sizeof on;
    EXPECT_EQ(getsockopt(connection.chosen, SOL_SOCKET, SO_KEEPALIVE, &on, &size), 0);
    EXPECT_EQ(getsockopt(connection.chosen, IPPROTO_TCP, TCP_KEEPIDLE, &idle, &size), 0);
    EXPECT_TRUE(on == 1 && idle == 60) << "the kernel asks after the manager";
}

TEST_F(heartbeat, ReleaseForgetsManagerAliasAndJob)
{
    g_inventory.alias = client.alias;
    _client_reset();
    EXPECT_FALSE(client.manager || client.alias || g_inventory.alias);
    EXPECT_FALSE(qel_load()->alias);
    timer_pass(1000);
    EXPECT_EQ(heartbeat_registered(), 0);
    EXPECT_EQ(process_heartbeat(nullptr), -1) << "until the next adoption";
}
