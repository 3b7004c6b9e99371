// The thread of a mirror relationship: it watches the links and copies what is due.
#pragma once

#include "platform/linux/mirror/mirror.h"

// ONE must stay valid until its worker has ended. False after a log line.
bool start_worker(mirror &one);

// Ends the worker, if there is one, and waits for it, and so for the blocks in flight.
void end_worker(mirror &one);
