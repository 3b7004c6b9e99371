// The scan thread, which keeps the inventory fresh: every 600 seconds, or at once when woken.
#pragma once

// Thread body; ARG is not used; never returns. Detaches itself.
void *_scan_client_thread(void *arg);

// Asks for a scan now. One that comes while a scan runs is lost.
void wake_scan_thread();
