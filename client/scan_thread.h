// The scan thread, which refreshes the inventory when woken, and otherwise every 600 seconds. The timer wakes
// it whenever the heartbeat is due: every 5 seconds on an adopted host whose manager answers.
#pragma once

// Thread body; ARG is not used; never returns. Detaches itself.
void *_scan_client_thread(void *arg);

// Starts a scan now. Has no effect while a scan runs.
void wake_scan_thread();
