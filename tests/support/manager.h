// A manager: takes the daemon's heartbeats and answers them as the test says.
#pragma once

#include "tests/support/client.h"

#include <mutex>
#include <string>
#include <thread>
#include <vector>

class fake_manager {
public:
    // Listens where write_config's daemon looks for its manager, on every local address.
    fake_manager();
    ~fake_manager();
    fake_manager(const fake_manager &) = delete;
    fake_manager &operator=(const fake_manager &) = delete;

    // How every heartbeat is answered from now on.
    void answer(uint16_t status, const std::string &body = "");

    // From now on answers wait until this is called with false; heartbeats are still taken.
    void stall(bool on);

    std::vector<reply> heartbeats() const;

    // Waits until COUNT more heartbeats than by now have come. Fails the test when they do not.
    void expect_heartbeats(size_t count);

    // What this manager sends and is sent about itself: the manager document.
    static std::string record(const std::string &guid, const std::string &addresses,
                              const std::string &target = "");

private:
    void accept_connections();
    void serve(peer connection);

    peer listener_;
    mutable std::mutex lock_; // guards what follows
    message_head head_;
    std::string body_;
    bool stalled_ = false;
    bool ends_ = false;
    std::vector<reply> heartbeats_;
    std::vector<std::thread> servers_;
    std::thread acceptor_;
};
