// The clock of unit tests, linked in place of the real one: it stands still until a test moves it.
#pragma once

#include "base/clock.h"

void fake_clock_set_wall(int64_t seconds);
void fake_clock_set_monotonic(int64_t seconds);

// The deadline of the one thread that is in clock_cond_wait now; -1 for none. Who holds that thread's mutex
// knows that it really waits, so that a signal from then on reaches it.
int64_t fake_clock_deadline();
