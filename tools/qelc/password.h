// Reads passwords from where nobody else can see them: not from the command line.
#pragma once

#include "base/text.h"

#include <string>

// The password is the first line of FILE. If FILE is "" or "-" and standard input is a terminal, the terminal
// is asked with PROMPT and without echo; otherwise "-" is standard input. On failure returns none and sets
// ERROR, also for a password that is empty or that XML cannot carry.
optional_text read_password(const std::string &file, const std::string &prompt, std::string &error);
