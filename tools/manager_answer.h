// One connection to the stand-in manager: the report that comes in and what is answered to it.
#pragma once

#include "tools/manager_options.h"

#include <string>

struct visit {
    connection peer;
    std::string name; // the peer's address
    treatment treat;
    bool difficult = false; // meets the difficult side of the treatment
};

// Takes one report, prints a line about it and about what becomes of it, and then does that. False when no
// report came, or none was wanted. Visits may be dealt with side by side.
bool answer_report(const visit &guest);

// A line of the tool's output, after the time of day.
void print_line(const std::string &text);
