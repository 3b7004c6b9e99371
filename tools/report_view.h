// A client report for a person to read.
#pragma once

#include <string>

// The report in one line: host, addresses and, as far as it holds them, counts. Says so when the text is
// none.
std::string report_line(const char *report);

// The report at length: a table per list.
std::string report_page(const char *report);
