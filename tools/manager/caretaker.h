// The thread of a service that keeps state: it answers commands of this host, saves the list of hosts, and
// tells of those that have become silent.
#pragma once

#include "tools/manager/host_table.h"

#include <memory>
#include <string>

struct caretaker;
struct caretaker_end {
    void operator()(caretaker *running) const; // waits for the thread, and saves the list once more
};
using caretaker_holder = std::unique_ptr<caretaker, caretaker_end>;

// Null after a complaint. The list of a former run is in HOSTS then.
caretaker_holder start_caretaker(const std::string &folder, std::shared_ptr<host_table> hosts);
