// Peers that stall, vanish, flood or talk nonsense: the worker stays the same, serves the others meanwhile,
// and has as many threads and descriptors afterwards as before.
#include "tests/support/system_test.h"

#include <algorithm>
#include <random>

namespace {
using usage = std::pair<size_t, size_t>; // threads, descriptors

usage usage_of(pid_t pid)
{
    return {thread_count(pid), descriptor_count(pid)};
}

// What a worker uses when nothing goes on: the same for a while.
usage settled_usage(pid_t pid)
{
    usage last = usage_of(pid);
    int same = 0;
    eventually([&] {
        const usage now = usage_of(pid);
        same = now == last ? same + 1 : 0;
        last = now;
        return same == 20;
    });
    return last;
}

class robustness : public system_test {
protected:
    void start()
    {
        daemon.start();
        worker_ = qelcd::worker();
        at_start_ = settled_usage(worker_);
    }

    void TearDown() override
    {
        EXPECT_TRUE(is_serving());
        EXPECT_EQ(qelcd::worker(), worker_) << "the worker did not survive";
        eventually([&] { return usage_of(worker_) == at_start_; });
        EXPECT_EQ(usage_of(worker_), at_start_);
    }

    void tolerate_broken_peers()
    {
        for (const char *line : {"Failed to receive msg, * bytes left", "Failed to read (*",
                                 "Failed to write (*", "Failed to send head to fd(*)"})
            log.tolerate(line);
    }

    pid_t worker_ = 0;
    usage at_start_{};
};
} // namespace

TEST_F(robustness, AnnouncedBodyThatNeverComes)
{
    start();
    const auto refusals = [&] {
        return std::ranges::count(log.lines(), "Failed to allocate memory", &log_line::text);
    };
    tolerate_broken_peers();
    log.tolerate("Failed to allocate memory"); // a body may be refused at once
    for (const uint32_t length : {0xFFFFFFFFU, 0x7FFFFFFFU, 0x80000000U}) {
        const peer connection = connect_tcp();
        connection.send(frame(request_head(command::nop_command, length)));
        connection.send("<Tessaron/>");
        EXPECT_TRUE(is_serving());
        connection.finish();
        const auto answer = connection.receive();
        EXPECT_TRUE(answer.closed) << length;
        EXPECT_EQ(answer.bytes, "") << length;
        EXPECT_TRUE(length != 0xFFFFFFFFU || refusals() == 0) << "with its final zero it has no bytes";
    }
}

TEST_F(robustness, PeerThatVanishesInsideAFrame)
{
    start();
    const std::string request = frame(request_head(command::nop_command, 4), "body");
    for (size_t sent = 0; sent < request.size(); sent++) {
        const size_t mark = log.size();
        const peer connection = sent % 2 ? connect_unix() : connect_tcp();
        connection.send(request.substr(0, sent));
        connection.finish();
        EXPECT_EQ(connection.receive().bytes, "");
        const size_t missing = (sent < sizeof(message_head) ? sizeof(message_head) : request.size()) - sent;
        log.expect(LOG_ERR, "Failed to receive msg, " + std::to_string(missing) + " bytes left", mark);
    }
}

TEST_F(robustness, PeerThatHasGoneWhenItsReplyIsReady)
{
    start();
    world.always("kavdisk_rescan_dev", "1");
    world.delay("kavdisk_rescan_dev", 0.2);
    {
        const peer connection = connect_unix();
        connection.send(frame(request_head(command::rescan_devices)));
    }
    log.expect(LOG_ERR, "Failed to write (Broken pipe)");
    log.expect(LOG_ERR, "Failed to send head to fd(*)");
}

TEST_F(robustness, NonsenseFromTheNetwork)
{
    start();
    tolerate_broken_peers();
    log.tolerate("Received command from incompatible Tessaron server.");
    log.tolerate("Failed to allocate memory");
    std::mt19937 random(20240229);
    const auto nonsense = [&](size_t size) {
        std::string bytes(size, '\0');
        for (char &byte : bytes)
            byte = static_cast<char>(random());
        return bytes;
    };
    for (int round = 0; round < 40; round++) {
        std::string bytes = nonsense(1 + random() % 64);
        bytes[0] |= 4; // never our version: a code that does not exist would rightly end the worker
        const peer stranger = connect_tcp();
        stranger.send(bytes);
        stranger.finish();
        EXPECT_TRUE(stranger.receive().closed);

        const std::string body = nonsense(random() % 4096);
        for (const uint32_t command : {command::scan_client, command::nop_command, command::local_list})
            EXPECT_TRUE(ask(command, body)) << command;
    }
}

TEST_F(robustness, ManyConnectionsAtOnce)
{
    start();
    constexpr size_t count = 512;
    const std::string request = frame(request_head(command::nop_command));
    [[maybe_unused]] const size_t mappings = mapping_count(worker_);
    std::vector<peer> peers;
    for (size_t i = 0; i < count; i++) {
        peers.push_back(connect_tcp());
        ASSERT_TRUE(peers.back().send(request.substr(0, 8))) << i;
    }
    EXPECT_TRUE(eventually([&] { return thread_count(worker_) >= at_start_.first + count; }));
    EXPECT_TRUE(is_serving());
    for (const peer &one : peers)
        EXPECT_TRUE(one.send(request.substr(8)));
    for (const peer &one : peers) {
        const auto answer = one.receive();
        EXPECT_EQ(answer.bytes, request);
        ASSERT_TRUE(answer.closed);
    }
#ifndef QELCD_SANITIZED // which maps memory of its own
    // A thread that nobody detached or joined would keep its stack.
    EXPECT_TRUE(eventually([&] { return mapping_count(worker_) < mappings + count; }));
#endif
}

TEST_F(robustness, NoDescriptorsLeft)
{
    daemon.limit_descriptors(32);
    start();
    tolerate_broken_peers();
    log.tolerate("Failed to accept socket (Too many open files)");
    {
        std::vector<peer> peers;
        for (int i = 0; i < 64; i++)
            peers.push_back(connect_tcp());
        log.expect(LOG_ERR, "Failed to accept socket (Too many open files)");
    }
}
