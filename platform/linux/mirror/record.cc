#include "platform/linux/mirror/record.h"

#include "platform/linux/host/text.h"

#include <algorithm>
#include <array>

namespace {

constexpr std::array<const char *, 5> state_texts = {"UnSync", "Sync On", "Recovery On", "Sync Finished",
                                                     "Sync Cancelled"};

const char *link_text(bool is_up)
{
    return is_up ? "Up" : "Down";
}

record_fields fields_of(const mirror_record &record)
{
    return {{"src_guid", record.src_guid},
            {"dest_guid", record.dest_guid},
            {"src_path", record.src_path},
            {"dest_path", record.dest_path},
            {"src_link", link_text(record.src_is_up)},
            {"dest_link", link_text(record.dest_is_up)},
            {"size", std::to_string(record.size)},
            {"sync_state", text_of(record.state)},
            {"position", std::to_string(record.position)},
            {"boot", record.mark.boot},
            {"diskseq", record.mark.disk},
            {"sectors_changed", std::to_string(record.mark.sectors)},
            {"dest_diskseq", record.dest_mark.disk},
            {"dest_sectors_changed", std::to_string(record.dest_mark.sectors)}};
}

// Wrong fields are detected by comparing FIELDS with fields_of the result.
mirror_record record_of(const record_fields &fields)
{
    const auto text = [&](size_t i) { return i < fields.size() ? fields[i].second : std::string(); };
    const auto number = [&](size_t i) { return parse_number(text(i)).value_or(0); };
    const auto state = std::find(state_texts.begin(), state_texts.end(), text(7));
    const auto index = state == state_texts.end() ? 0 : state - state_texts.begin();
    return {text(0),
            text(1),
            text(2),
            text(3),
            text(4) == "Up",
            text(5) == "Up",
            number(6),
            static_cast<sync_state>(index),
            number(8),
            {text(9), text(10), number(11)},
            {text(9), text(12), number(13)}};
}

// Records of former versions lack the mark of the mirror.
record_fields with_all_fields(record_fields fields)
{
    const record_fields all = fields_of({});
    if (fields.size() + 2 == all.size())
        fields.insert(fields.end(), all.end() - 2, all.end());
    return fields;
}

bool is_mirror(const record_fields &given)
{
    const record_fields fields = with_all_fields(given);
    const mirror_record record = record_of(fields);
    const auto is_guid = [](const std::string &guid) {
        return !guid.empty() && guid.size() <= longest_guid_text;
    };
    return fields_of(record) == fields && is_guid(record.src_guid) && is_guid(record.dest_guid) &&
           record.src_guid != record.dest_guid && record.size > 0 && record.position <= record.size;
}

constexpr record_kind mirror_kind = {twinvault, "mirror", is_mirror};

} // namespace

const char *text_of(sync_state state)
{
    return state_texts.at(static_cast<size_t>(state));
}

unsigned percent_of(const mirror_record &record, uint64_t position)
{
    if (record.state == sync_state::level)
        return 100;
    // In two steps, since a hundred times the size may not fit into 64 bits.
    const uint64_t step = std::max<uint64_t>(record.size / 100, 1);
    return static_cast<unsigned>(std::min<uint64_t>(position / step, 100));
}

bool save_mirror(const mirror_record &record)
{
    return store_record(mirror_kind, fields_of(record));
}

bool forget_mirror(const mirror_record &record)
{
    return remove_record(mirror_kind, record.src_guid) >= 0;
}

bool set_aside_mirror(const mirror_record &record)
{
    return set_aside_record(mirror_kind, record.src_guid);
}

std::optional<std::vector<mirror_record>> load_mirrors(bad_files bad)
{
    const auto all = load_records(mirror_kind, bad);
    if (!all)
        return std::nullopt;
    std::vector<mirror_record> mirrors;
    for (const record_fields &fields : *all)
        mirrors.push_back(record_of(fields));
    return mirrors;
}
