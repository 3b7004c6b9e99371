// A client report for a person to read.
#pragma once

#include "base/xml.h"

#include <string>

constexpr char no_report[] = "not a client report";

// The element of the host that the report is about. Null if the document is null or not a client report.
const xmlNode *report_client(const xml_doc &doc);

// The value of an attribute; "" for none.
std::string report_value(const xmlNode *node, const char *attribute);

// The report in one line: host, addresses, and the length of each list that it has. For another text,
// no_report.
std::string report_line(const char *report);

// The report at length: a table per list.
std::string report_page(const char *report);
