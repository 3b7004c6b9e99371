// A password from where nobody else sees it: never from the command line.
#pragma once

#include "base/text.h"

#include <string>

// Reads one from the first line of FILE, "-" for standard input. Without a FILE, and when standard input is a
// terminal, it is asked for there with PROMPT and without echo. None with an ERROR, also for one that is
// empty or that no document can carry.
optional_text read_password(const std::string &file, const std::string &prompt, std::string &error);
