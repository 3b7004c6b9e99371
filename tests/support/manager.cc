#include "tests/support/manager.h"

#include "protocol/commands.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>

namespace {
constexpr int look_again = 20; // milliseconds

bool receive_fully(int fd, void *bytes, size_t count)
{
    return recv(fd, bytes, count, MSG_WAITALL) == static_cast<ssize_t>(count);
}

bool receive_whole(int fd, reply &heartbeat)
{
    if (!receive_fully(fd, &heartbeat.head, sizeof heartbeat.head))
        return false;
    heartbeat.body.resize(heartbeat.head.data_len);
    return receive_fully(fd, heartbeat.body.data(), heartbeat.body.size());
}
} // namespace

fake_manager::fake_manager()
    : listener_(listen_tcp(client_port + 1)), answer_(frame(request_head(heartbeat_command))),
      server_([this] { serve(); })
{
    EXPECT_TRUE(listener_.connected()) << "the manager cannot listen";
}

fake_manager::~fake_manager()
{
    {
        const std::lock_guard held(lock_);
        ends_ = true;
    }
    server_.join();
}

void fake_manager::answer(uint16_t status, const std::string &body)
{
    message_head head = request_head(heartbeat_command, body.size());
    head.ret = status;
    const std::lock_guard held(lock_);
    answer_ = frame(head, body);
}

void fake_manager::stall(bool on)
{
    const std::lock_guard held(lock_);
    stalled_ = on;
}

std::vector<reply> fake_manager::heartbeats() const
{
    const std::lock_guard held(lock_);
    return heartbeats_;
}

void fake_manager::expect_heartbeats(size_t count)
{
    const size_t wanted = heartbeats().size() + count;
    EXPECT_TRUE(eventually([&] { return heartbeats().size() >= wanted; }, count * 6s + patience))
        << "heartbeats do not come";
}

void fake_manager::serve()
{
    std::vector<peer> unanswered;
    for (;;) {
        pollfd wait{.fd = listener_.fd(), .events = POLLIN, .revents = 0};
        reply heartbeat;
        if (poll(&wait, 1, look_again) > 0)
            unanswered.emplace_back(accept(listener_.fd(), nullptr, nullptr));
        const bool has_come = wait.revents && receive_whole(unanswered.back().fd(), heartbeat);
        const std::lock_guard held(lock_);
        if (has_come)
            heartbeats_.push_back(heartbeat);
        if (ends_)
            return;
        for (const peer &one : unanswered) {
            if (!stalled_)
                one.send(answer_);
        }
        if (!stalled_)
            unanswered.clear();
    }
}
