// One connection to the stand-in manager: a report comes in and is answered.
#pragma once

#include "tools/manager/options.h"

#include <string>

struct visit {
    unique_fd peer;
    std::string name; // the peer's address
    treatment treat;
    bool difficult = false; // is refused, stalled, cut or answered with a status as the treatment says
};

// Takes one report, prints a line about it and about its answer, and sends that answer. False if no report
// came or the connection was refused. Several threads may call it at once.
bool answer_report(const visit &guest);

// Prints a line after the time of day.
void print_line(const std::string &text);
