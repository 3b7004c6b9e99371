// Answers as JSON, for programs.
#pragma once

#include "tools/qelc/views/envelope.h"
#include "tools/qelc/views/mirrors.h"

// Each makes RESULTS the array of what an answer holds: sizes in bytes, durations in seconds, times as texts
// in UTC (RFC 3339); null for what is not known. False if the answer has another form.
bool mirrors_json(const char *report, json_object &results);
json_object mirror_object(const mirror_view &mirror);
bool groups_json(const char *answer, json_object &results);
bool schedule_json(const char *answer, json_object &results);
