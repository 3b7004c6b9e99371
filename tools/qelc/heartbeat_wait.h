// Waiting for a heartbeat of this host to come to its manager.
#pragma once

#include "tools/qelc/manager_view.h"

#include <ctime>

enum class heartbeat_end { came, missing, not_told };

// Until one has come since FROM, for so many SECONDS, which standard error shows. Ends soon if nobody here
// can tell.
heartbeat_end wait_for_heartbeat(const manager_view &manager, time_t from, unsigned seconds);
