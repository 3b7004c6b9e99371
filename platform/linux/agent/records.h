// Converts records of the agent's folder to the C records that its callers get.
#pragma once

#include "base/secret.h"
#include "platform/linux/host/weak_log.h"
#include "platform/linux/state/store.h"

#include <cerrno>
#include <cstring>

// Appends the result of MAKE for each record of that kind; MAKE returns null when out of memory. WHAT names
// the records in the log. False after a log line.
template <class Record>
bool load_all(const record_kind &kind, Record (*make)(const record_fields &fields), const char *what,
              std::vector<Record> *all)
{
    auto records = load_records(kind);
    if (!records)
        return false;
    for (record_fields &fields : *records) {
        const wiped_at_end once_made(fields);
        all->push_back(make(fields));
        if (!all->back()) {
            log_error("Cannot list the %s: %s", what, strerror(ENOMEM));
            return false;
        }
    }
    return true;
}
