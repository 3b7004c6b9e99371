#include "platform/linux/agent/restores.h"

#include "platform/linux/state/folders.h"
#include "platform/linux/state/lock.h"
#include "platform/linux/state/store.h"

namespace {

record_fields fields_of(const restore_record &one)
{
    return {{"disk", one.disk}, {"snapshot", one.snapshot}, {"attached", one.was_attached ? "yes" : "no"}};
}

restore_record restore_of(const record_fields &fields)
{
    restore_record one;
    if (fields.size() == 3)
        one = {fields[0].second, fields[1].second, fields[2].second == "yes"};
    return one;
}

// What is unknown, duplicated or out of order does not survive the conversion and back.
bool is_restore(const record_fields &fields)
{
    return fields_of(restore_of(fields)) == fields;
}

constexpr record_kind running_restore = {kavcdpagt, "restore", is_restore};

off_t place_of(const std::string &disk)
{
    return place_of_name("restore " + disk);
}

} // namespace

bool store_restore(const restore_record &one)
{
    return store_record(running_restore, fields_of(one));
}

bool forget_restore(const std::string &disk)
{
    return remove_record(running_restore, disk) >= 0;
}

std::optional<std::vector<restore_record>> load_restores()
{
    const auto records = load_records(running_restore);
    if (!records)
        return std::nullopt;
    std::vector<restore_record> all;
    for (const record_fields &fields : *records)
        all.push_back(restore_of(fields));
    return all;
}

unique_fd try_lock_restore(const std::string &disk)
{
    return try_lock_places(kavcdpagt, {place_of(disk)});
}

bool is_restore_running(const std::string &disk)
{
    return is_locked(kavcdpagt, place_of(disk));
}
