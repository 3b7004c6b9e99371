#include "jobs/heartbeat.h"

std::mutex g_heartbeat_running_lock;
int32_t g_heartbeat_running = 0;
