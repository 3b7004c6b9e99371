#include "platform/linux/mirror/mirror_view.h"

#include "platform/linux/mirror/level_proof.h"

namespace {

mirror_view seen(const mirror_record &record, bool is_level, uint64_t copied)
{
    mirror_view view = {record, 0};
    if (record.state == sync_state::level)
        view.record.state = is_level ? sync_state::level : sync_state::recovering;
    view.percent = percent_of(view.record, copied);
    return view;
}

// How much of the mirror is as its disk; less than all, as the mirror is not level.
uint64_t bytes_that_follow(const mirror &one)
{
    const uint64_t behind = one.tracker ? one.tracker->pages_behind() * one.tracker->page_size() : UINT64_MAX;
    return behind < one.record.size ? one.record.size - behind - 1 : 0;
}

} // namespace

mirror_view view_of(const mirror &one)
{
    const bool is_level = one.record.state == sync_state::level && is_still_level(one);
    const bool has_changed = one.record.state == sync_state::level && !is_level;
    return seen(one.record, is_level, has_changed ? bytes_that_follow(one) : one.copied);
}

mirror_view view_when_level(const mirror &one)
{
    return seen(one.record, true, one.copied);
}

mirror_view view_of(const mirror_record &record)
{
    return seen(record, has_level_marks(record), 0);
}
