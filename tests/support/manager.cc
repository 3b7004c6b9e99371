#include "tests/support/manager.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>

#include <cstring>

namespace {
constexpr int look_again = 20; // milliseconds

bool has_input(int fd)
{
    pollfd wait{.fd = fd, .events = POLLIN, .revents = 0};
    return poll(&wait, 1, look_again) > 0;
}

bool receive_fully(int fd, void *bytes, size_t count)
{
    return recv(fd, bytes, count, MSG_WAITALL) == static_cast<ssize_t>(count);
}
} // namespace

fake_manager::fake_manager()
    : listener_(listen_tcp(client_port + 1)), head_(request_head(32)),
      acceptor_([this] { accept_connections(); })
{
    EXPECT_TRUE(listener_.connected()) << "the manager cannot listen";
}

fake_manager::~fake_manager()
{
    {
        const std::lock_guard held(lock_);
        ends_ = true;
    }
    acceptor_.join();
    for (std::thread &server : servers_)
        server.join();
}

void fake_manager::answer(uint16_t status, const std::string &body)
{
    const std::lock_guard held(lock_);
    body_ = body;
    head_ = request_head(32, body.size());
    head_.ret = status;
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

std::string fake_manager::record(const std::string &guid, const std::string &addresses,
                                 const std::string &target)
{
    const std::string iqn = target.empty() ? "" : " TargetIqn=\"" + target + "\"";
    return "<Tessaron><Server ID=\"" + guid + "\" IPs=\"" + addresses + "\"" + iqn + "/></Tessaron>";
}

void fake_manager::accept_connections()
{
    for (;;) {
        const bool incoming = has_input(listener_.fd());
        const std::lock_guard held(lock_);
        if (ends_)
            return;
        if (incoming)
            servers_.emplace_back(&fake_manager::serve, this, peer(accept(listener_.fd(), nullptr, nullptr)));
    }
}

void fake_manager::serve(peer connection)
{
    reply heartbeat;
    if (!receive_fully(connection.fd(), &heartbeat.head, sizeof heartbeat.head))
        return;
    heartbeat.body.resize(heartbeat.head.data_len);
    if (!receive_fully(connection.fd(), heartbeat.body.data(), heartbeat.body.size()))
        return;
    std::unique_lock held(lock_);
    heartbeats_.push_back(heartbeat);
    while (stalled_ && !ends_) {
        held.unlock();
        std::this_thread::sleep_for(std::chrono::milliseconds(look_again));
        held.lock();
    }
    connection.send(frame(head_, body_));
}
