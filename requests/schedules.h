// The document that sets a CDP schedule; the manager's and the CDP agent's differ in one element's name. See
// requests/document.h for the rules of all parsers.
#pragma once

#include <cstdint>
#include <string>

struct schedule_request {
    bool is_group = false;
    std::string source;      // the group's name, or the disk's GUID
    uint64_t start_time = 0; // seconds since the epoch
    uint32_t interval = 0;   // seconds
};

// The schedule of ELEMENT, a child of the root. Returns 0, or -1.
int xml_to_schedule(const char *text, const char *element, schedule_request *wanted);
