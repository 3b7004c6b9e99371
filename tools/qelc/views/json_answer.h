// Answers as JSON, for programs.
#pragma once

#include "protocol/request.h"

#include <nlohmann/json_fwd.hpp>

using json_object = nlohmann::ordered_json;

// Each adds the content of an answer to OBJECT: sizes in bytes, times in seconds since the epoch, 0 for none;
// null for what is not known.
// False if the answer has another form.
bool disks_json(const char *report, json_object &object);
bool mirrors_json(const char *report, json_object &object);
bool groups_json(const char *answer, json_object &object);
bool schedule_json(const char *answer, json_object &object);

// Prints an object in one line: the status of the answer and, after a success, what ADD adds from its body.
// ADD may be null. Returns what the program ends with; complains if ADD fails.
int print_json_answer(const request &reply, bool (*add)(const char *answer, json_object &object));
