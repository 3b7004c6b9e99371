// The thread of a mirror relationship: it looks after the links and copies what is due.
#pragma once

#include "platform/linux/mirror.h"

// ONE must live until its worker has ended. False after a log line.
bool start_worker(mirror &one);

// Has the worker end, if there is one, and waits for that: as long as the blocks on their way take.
void end_worker(mirror &one);
