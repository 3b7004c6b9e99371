// A manager inside the test, which takes the daemon's heartbeats, keeps them as they came, and answers them
// with whatever the test says, also what is no manager's record. The tool standin-manager does neither.
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

private:
    void serve();

    peer listener_;
    mutable std::mutex lock_; // guards what follows
    std::string answer_;
    bool stalled_ = false;
    bool ends_ = false;
    std::vector<reply> heartbeats_;
    std::thread server_;
};
