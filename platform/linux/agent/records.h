// Converts records of the agent's folder to the C records that its callers get. Memory that runs out is
// thrown as std::bad_alloc: it must not be taken for a record that is damaged.
#pragma once

#include "base/secret.h"
#include "platform/linux/host/allocate.h"
#include "platform/linux/state/store.h"

// Appends the result of MAKE for each record of that kind. False after a log line.
template <class Record>
bool load_all(const record_kind &kind, Record (*make)(const record_fields &fields), std::vector<Record> *all)
{
    auto records = load_records(kind);
    if (!records)
        return false;
    for (record_fields &fields : *records) {
        const wiped_at_end once_made(fields);
        all->push_back(make(fields));
    }
    return true;
}
