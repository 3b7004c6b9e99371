#include "tools/qelc/views/progress.h"

#include "platform/linux/state/progress.h"
#include "tools/common/human_text.h"
#include "tools/common/visible.h"

#include <algorithm>

bool is_daemon_local = false;

namespace {
void read_tracking(const mirror_progress &told, progress_view &progress)
{
    if (told.tracked != tracked_writes::unknown)
        progress.is_tracked = told.tracked == tracked_writes::yes;
    progress.reason = visible(told.reason);
    if (told.page_size != 0)
        progress.page_size = told.page_size;
}

// A mirror that was at rest and is so no more: how far it is behind will be told in a moment.
void read_distance(const mirror_progress &told, progress_view &progress)
{
    if (told.is_level) {
        progress.level_ago = 0;
        return;
    }
    progress.bytes_behind = bytes_behind(told);
    const uint64_t now = seconds_since_boot();
    if (told.level_at != 0)
        progress.level_ago = now - std::min(now, told.level_at);
    if (told.rate == 0)
        return;
    progress.rate = told.rate;
    progress.seconds_left = *progress.bytes_behind / told.rate + (*progress.bytes_behind % told.rate != 0);
}
} // namespace

progress_view progress_of(const mirror_pair &guids, bool is_level)
{
    progress_view progress;
    const auto told = is_daemon_local ? read_progress(guids.source) : std::nullopt;
    if (!told || told->dest_guid != guids.mirror)
        return progress;
    read_tracking(*told, progress);
    if (!is_level) {
        read_distance(*told, progress);
        return progress;
    }
    progress.is_level = true;
    progress.bytes_behind = 0;
    progress.level_ago = 0;
    return progress;
}

std::optional<uint64_t> pages_behind(const progress_view &progress)
{
    if (!progress.bytes_behind || !progress.page_size)
        return std::nullopt;
    return *progress.bytes_behind / *progress.page_size + (*progress.bytes_behind % *progress.page_size != 0);
}

std::string level_text(const progress_view &progress)
{
    if (!progress.level_ago)
        return "-";
    return progress.is_level ? "now" : time_text(*progress.level_ago) + " ago";
}

std::string progress_text(const progress_view &progress)
{
    if (progress.rate)
        return size_text(*progress.rate) + "/s, " + time_text(*progress.seconds_left) + " left";
    if (!progress.bytes_behind)
        return "";
    const std::string behind = size_text(*progress.bytes_behind) + " behind";
    return progress.level_ago ? behind + ", level " + level_text(progress) : behind;
}
