#include "platform/linux/mirror/page_samples.h"

#include "base/deleter.h"
#include "base/hash.h"
#include "platform/linux/mirror/write_mark.h"
#include "platform/linux/state/folders.h"
#include "platform/linux/state/store.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <optional>

namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;

constexpr uint64_t page = 4096;
constexpr size_t most_recent = 16;
constexpr size_t others = 16;
constexpr auto pause_at_rest = 1s;
constexpr auto pause_under_load = 10s;
constexpr auto pause_after_failure = 1min;

struct remembered_mirror {
    std::string src_guid;
    std::string boot;
    std::string disk; // its sequence number
    std::vector<sampled_page> pages;
};

record_fields fields_of(const remembered_mirror &mirror)
{
    std::string pages;
    for (const sampled_page &one : mirror.pages)
        pages += (pages.empty() ? "" : ",") + std::to_string(one.offset) + ":" + std::to_string(one.checksum);
    return {{"src_guid", mirror.src_guid}, {"boot", mirror.boot}, {"diskseq", mirror.disk}, {"pages", pages}};
}

// Wrong text is detected by comparing it with that of the result.
std::vector<sampled_page> pages_of(const std::string &text)
{
    std::vector<sampled_page> pages;
    char *end = nullptr;
    for (const char *at = text.c_str(); *at; at = *end ? end + 1 : end) {
        const uint64_t offset = strtoull(at, &end, 10);
        const uint64_t checksum = *end ? strtoull(end + 1, &end, 10) : 0;
        pages.push_back({offset, checksum});
    }
    return pages;
}

remembered_mirror mirror_of(const record_fields &fields)
{
    const auto text = [&](size_t i) { return i < fields.size() ? fields[i].second : std::string(); };
    return {text(0), text(1), text(2), pages_of(text(3))};
}

bool is_sound(const record_fields &fields)
{
    return fields_of(mirror_of(fields)) == fields;
}

constexpr record_kind sample_kind = {twinvault, "pages", is_sound};

std::optional<uint64_t> checksum_at(int fd, uint64_t offset)
{
    const std::unique_ptr<char, deleter<free>> bytes(static_cast<char *>(aligned_alloc(page, page)));
    if (!bytes)
        throw std::bad_alloc();
    if (pread(fd, bytes.get(), page, static_cast<off_t>(offset)) != static_cast<ssize_t>(page))
        return std::nullopt;
    return fnv1a_64({bytes.get(), page});
}

// Without pages if nothing is remembered; null after a log line.
std::optional<remembered_mirror> recall(const std::string &src_guid)
{
    const auto all = load_records(sample_kind, bad_files::left_alone);
    if (!all)
        return std::nullopt;
    for (const record_fields &fields : *all) {
        if (fields.front().second == src_guid)
            return mirror_of(fields);
    }
    return remembered_mirror{};
}

} // namespace

page_samples::page_samples(const std::string &src_guid, const located_disk &mirror)
    : src_guid_(src_guid), mirror_(mirror), pages_(recall(src_guid).value_or(remembered_mirror{}).pages)
{
}

bool page_samples::make_way(uint64_t begin, uint64_t end)
{
    const uint64_t last = std::min(end, begin + most_recent * page);
    for (uint64_t offset = begin / page * page; offset < last; offset += page) {
        recent_.resize(std::max(recent_.size(), next_recent_ + 1));
        recent_[next_recent_] = offset;
        next_recent_ = (next_recent_ + 1) % most_recent;
    }
    is_outdated_ = true;
    const bool is_hit = std::any_of(pages_.begin(), pages_.end(), [&](const sampled_page &one) {
        return one.offset < end && one.offset + page > begin;
    });
    if (is_hit && !forget_samples(src_guid_))
        return false;
    if (is_hit)
        pages_.clear();
    return true;
}

// Not the first page, which holds the disk's identity, nor a last one that is none in full.
std::vector<uint64_t> page_samples::choose() const
{
    const uint64_t pages = mirror_.size / page;
    std::vector<uint64_t> offsets = recent_;
    for (size_t i = 0; i < others && pages > 1; i++)
        offsets.push_back((1 + fnv1a_64(src_guid_ + std::to_string(i)) % (pages - 1)) * page);
    std::sort(offsets.begin(), offsets.end());
    offsets.erase(std::unique(offsets.begin(), offsets.end()), offsets.end());
    std::erase_if(offsets, [&](uint64_t offset) { return offset == 0 || offset / page >= pages; });
    return offsets;
}

void page_samples::remember(int mirror, bool at_rest)
{
    const auto now = steady_clock::now();
    if (mirror_.is_storage_volume || !is_outdated_ ||
        now - remembered_ < (at_rest ? pause_at_rest : pause_under_load))
        return;
    remembered_ = now;
    std::vector<sampled_page> pages;
    for (const uint64_t offset : choose()) {
        if (const auto checksum = checksum_at(mirror, offset))
            pages.push_back({offset, *checksum});
    }
    if (store_record(sample_kind, fields_of({src_guid_, boot_id(), mirror_.sequence, pages}))) {
        pages_ = std::move(pages);
        is_outdated_ = false;
    } else {
        remembered_ += pause_after_failure;
    }
}

std::string objection_to_copy(const std::string &src_guid, const located_disk &mirror, int fd)
{
    if (mirror.is_storage_volume)
        return "";
    const auto known = recall(src_guid);
    if (!known)
        return "it cannot be compared with what was remembered of it";
    if (known->boot == boot_id() && known->disk == mirror.sequence)
        return "";
    for (const sampled_page &one : known->pages) {
        if (checksum_at(fd, one.offset) != one.checksum)
            return "it is another copy than the one that was there; resynchronise the disk to overwrite it";
    }
    return "";
}

bool forget_samples(const std::string &src_guid)
{
    return remove_record(sample_kind, src_guid) >= 0;
}
