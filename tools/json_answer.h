// Answers for programs.
#pragma once

#include "protocol/request.h"

#include <nlohmann/json_fwd.hpp>

using json_object = nlohmann::ordered_json;

// Each adds what the text of an answer says to OBJECT: numbers as numbers, sizes in bytes, times in seconds
// since the epoch, 0 for none. False when the text is something else.
bool disks_json(const char *report, json_object &object);
bool mirrors_json(const char *report, json_object &object);
bool groups_json(const char *answer, json_object &object);
bool schedule_json(const char *answer, json_object &object);

// Prints an object in one line: the status of the answer, and what ADD, if any, finds in the body of one that
// is a success. Returns what the program ends with, after a complaint when ADD finds something else.
int print_json_answer(const request &reply, bool (*add)(const char *answer, json_object &object));
