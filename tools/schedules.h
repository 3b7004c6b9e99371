// The schedule in the host's answer.
#pragma once

#include "tools/protection_bodies.h"

#include <optional>

// None when the text is no schedule.
std::optional<snapshot_times> schedule_of(const char *answer);

// The schedule for a person to read; none when the text is none.
optional_text schedule_page(const char *answer);
