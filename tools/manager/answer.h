// One connection to the stand-in manager: a report comes in and is answered.
#pragma once

#include "tools/manager/host_table.h"
#include "tools/manager/options.h"

#include <memory>
#include <string>

struct visit {
    unique_fd peer;
    std::string name; // the peer's address
    treatment treat;
    bool difficult = false; // is refused, stalled, cut or answered with a status as the treatment says
    std::shared_ptr<host_table> hosts; // that reports are noted in; null: none is kept
};

// Takes one report, prints a line about it and about its answer, and sends that answer. Of reports that are
// noted only news are printed. False if no report came or the connection was refused. Several threads may
// call it at once.
bool answer_report(const visit &guest);

// Prints a line after the time of day.
void print_line(const std::string &text);

// The same for news, made visible.
void print_news(const std::vector<std::string> &news);
