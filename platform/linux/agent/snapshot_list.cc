#include "platform/linux/agent/snapshot_list.h"

#include "platform/linux/agent/keepers.h"
#include "platform/linux/state/text.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <nlohmann/json.hpp>
#include <set>

namespace {

using nlohmann::json;
using places_of_keeper = std::optional<std::map<std::string, kept_place>>;

constexpr size_t most_places_at_once = 200; // well below what a command line may hold

// Reads [{"place": TEXT, "device": TEXT, "size": NUMBER}, ...]; other keys are passed over. As a stream: the
// library's own tree of values cannot be freed when memory has run out.
class place_reader : public json::json_sax_t {
public:
    explicit place_reader(std::map<std::string, kept_place> *places) : places_(places) {}

    bool start_array(size_t /*count*/) override { return ++depth_ > 1 ? is_in_entry() : true; }
    bool end_array() override { return depth_-- > 0; }
    bool start_object(size_t /*count*/) override
    {
        if (++depth_ == entry_depth)
            place_.clear(), kept_ = {};
        return depth_ >= entry_depth;
    }
    bool end_object() override
    {
        if (depth_-- != entry_depth)
            return true;
        const bool is_named = !place_.empty();
        (*places_)[std::move(place_)] = std::move(kept_);
        return is_named;
    }
    bool key(std::string &name) override
    {
        if (depth_ == entry_depth)
            key_ = name;
        return true;
    }
    bool string(std::string &text) override
    {
        if (depth_ == entry_depth && key_ == "place")
            place_ = text;
        if (depth_ == entry_depth && key_ == "device")
            kept_.device = text;
        return is_in_entry();
    }
    bool number_unsigned(uint64_t number) override
    {
        if (depth_ == entry_depth && key_ == "size")
            kept_.size = number;
        return is_in_entry();
    }
    bool null() override { return is_in_entry(); }
    bool boolean(bool /*value*/) override { return is_in_entry(); }
    bool number_integer(int64_t /*value*/) override { return is_in_entry(); }
    bool number_float(double /*value*/, const std::string & /*text*/) override { return is_in_entry(); }
    bool binary(json::binary_t & /*value*/) override { return false; }
    bool parse_error(size_t /*place*/, const std::string & /*token*/,
                     const json::exception & /*error*/) override
    {
        return false;
    }

private:
    static constexpr unsigned entry_depth = 2; // an object in the array
    bool is_in_entry() const { return depth_ >= entry_depth; }

    std::map<std::string, kept_place> *places_;
    unsigned depth_ = 0;
    std::string key_, place_;
    kept_place kept_;
};

bool read_places(const std::string &answer, std::map<std::string, kept_place> *places)
{
    place_reader reader(places);
    return json::sax_parse(answer, &reader);
}

// What each keeper has, or why it does not say so.
struct keeper_places {
    places_of_keeper places;
    std::string why;
};

std::map<std::string, keeper_places> ask_all(const std::vector<snapshot> &records, bool with_sizes)
{
    std::map<std::string, std::vector<std::string>> wanted;
    for (const snapshot &record : records) {
        for (const snapshot_member &member : record.members)
            wanted[member.keeper].push_back(member.place);
    }
    std::map<std::string, keeper_places> found;
    for (const auto &[keeper, places] : wanted)
        found[keeper].places = look_at_places(keeper, places, with_sizes, &found[keeper].why);
    return found;
}

void add_member(const snapshot_member &member, const keeper_places &of, listed_snapshot *one)
{
    if (!of.places) {
        one->state = snapshot_state::unknown;
        one->why = of.why;
        return;
    }
    const auto found = of.places->find(member.place);
    if (found == of.places->end()) {
        one->state = one->state == snapshot_state::unknown ? one->state : snapshot_state::gone;
        return;
    }
    if (found->second.size)
        one->size = one->size.value_or(0) + *found->second.size;
    if (!found->second.device.empty())
        one->devices.push_back(found->second.device);
}

std::vector<listed_snapshot> look_at(std::vector<snapshot> records, bool with_sizes)
{
    auto places = ask_all(records, with_sizes);
    std::vector<listed_snapshot> all;
    for (snapshot &record : records) {
        listed_snapshot one;
        for (const snapshot_member &member : record.members)
            add_member(member, places[member.keeper], &one);
        if (one.state == snapshot_state::ok && !one.devices.empty())
            one.state = snapshot_state::attached;
        if (!record.is_complete)
            one.state = snapshot_state::unfinished;
        one.record = std::move(record);
        all.push_back(std::move(one));
    }
    return all;
}

} // namespace

std::optional<std::map<std::string, kept_place>> look_at_places(const std::string &keeper,
                                                                const std::vector<std::string> &places,
                                                                bool with_sizes, std::string *why)
{
    std::map<std::string, kept_place> found;
    for (size_t first = 0; first < places.size(); first += most_places_at_once) {
        const auto begin = places.begin() + static_cast<ptrdiff_t>(first);
        const auto count = std::min(most_places_at_once, places.size() - first);
        const keeper_answer answer =
            ask_keeper_for_list(keeper, {begin, begin + static_cast<ptrdiff_t>(count)}, with_sizes);
        *why = answer.is_done ? "keeper " + escaped(keeper) + ", list: what it says is no list" : answer.why;
        if (!answer.is_done || !read_places(answer.output, &found))
            return std::nullopt;
    }
    return found;
}

std::optional<std::vector<listed_snapshot>> list_snapshots(const snapshot_question &asked)
{
    auto records = load_snapshots();
    if (!records)
        return std::nullopt;
    std::erase_if(*records, [&](const snapshot &one) { return !asked.is_wanted(one); });
    return look_at(std::move(*records), asked.with_sizes);
}

std::optional<listed_snapshot> look_at_snapshot(const std::string &name, std::string *why)
{
    auto record = load_snapshot(name);
    *why = "there is no snapshot " + escaped(name);
    return record ? std::optional(look_at({std::move(*record)}, false).front()) : std::nullopt;
}
