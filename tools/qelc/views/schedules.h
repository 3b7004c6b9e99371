// The schedule in the host's answer.
#pragma once

#include "tools/qelc/bodies/protection.h"

#include <optional>

// None if the text is not a schedule.
std::optional<snapshot_times> schedule_of(const char *answer);

// The schedule for a person to read. None if the text is not a schedule.
optional_text schedule_page(const char *answer);
