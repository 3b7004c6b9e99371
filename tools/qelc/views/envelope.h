// What every verb prints with --json: one object in one line.
#pragma once

#include "tools/qelc/ask.h"

#include <nlohmann/json_fwd.hpp>
#include <string>

using json_object = nlohmann::ordered_json;

// The word for what the program ends with.
const char *status_word(exit_status status);

// REASON and HINT are null in the object if they are "". RESULTS is an array of objects.
void print_envelope(const std::string &command, exit_status status, const std::string &reason,
                    const std::string &hint, const json_object &results);
