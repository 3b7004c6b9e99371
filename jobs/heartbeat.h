// The heartbeat to the manager.
#pragma once

#include <cstdint>
#include <mutex>

// 1 while a manager has adopted this client and heartbeats are to be sent; guarded by the mutex beside it.
extern std::mutex g_heartbeat_running_lock;
extern int32_t g_heartbeat_running;
