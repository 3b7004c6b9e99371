// The manager that has adopted a host, as the daemon of the host tells of it.
#pragma once

#include <string>

struct manager_view {
    std::string guid;
    std::string addresses; // with blanks between them; "" for none
    std::string host_id;   // by which the manager knows the host; "" for none
};
