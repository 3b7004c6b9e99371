// The clock of unit tests, linked in place of the real one: it stands still until a test moves it.
#pragma once

#include "base/clock.h"

#include <optional>

void fake_clock_set_wall(int64_t seconds);
void fake_clock_set_monotonic(int64_t seconds);

// Moves both. A sleep moves them by its length and returns at once, so a loop that sleeps runs through.
void fake_clock_advance(int64_t seconds);

// The deadline of a thread that is in clock_cond_wait now; empty for none. Meant for one such thread at a
// time.
std::optional<int64_t> fake_clock_deadline();
