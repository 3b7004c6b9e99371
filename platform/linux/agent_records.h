// Records of the agent's folder as the C records that its callers get.
#pragma once

#include "platform/linux/state_store.h"
#include "platform/linux/weak_log.h"

#include <errno.h>
#include <string.h>

// Appends what MAKE makes of each record of that kind: null when memory is short. WHAT names them in the log.
// False after a log line.
template <class Record>
bool load_all(const record_kind &kind, Record (*make)(const record_fields &fields), const char *what,
              std::vector<Record> *all)
{
    const auto records = load_records(kind);
    if (!records)
        return false;
    for (const record_fields &fields : *records) {
        all->push_back(make(fields));
        if (!all->back()) {
            log_error("Cannot list the %s: %s", what, strerror(ENOMEM));
            return false;
        }
    }
    return true;
}
