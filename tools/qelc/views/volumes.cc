#include "tools/qelc/views/volumes.h"

#include "tools/common/human_text.h"
#include "tools/common/text_table.h"
#include "tools/common/visible.h"
#include "tools/qelc/views/short_guid.h"

#include <nlohmann/json.hpp>

namespace {
json_object text_or_null(const std::string &text)
{
    return text.empty() ? json_object() : json_object(text);
}

json_object volume_object(const volume_view &view)
{
    const volume_record &volume = view.volume;
    json_object object;
    object["name"] = volume.name;
    object["size"] = volume.size;
    object["taken"] = view.taken ? json_object(*view.taken) : json_object();
    object["kind"] = text_of(volume.kind);
    object["place"] = volume.place;
    object["state"] = text_of(volume.state);
    object["device"] = text_or_null(view.device.value_or(""));
    object["fault"] = text_or_null(view.fault);
    object["guid"] = volume.guid;
    object["source"] = text_or_null(view.source);
    return object;
}
} // namespace

std::string volumes_table(const std::vector<volume_view> &volumes)
{
    if (volumes.empty())
        return "no volumes\n";
    text_table rows{{"Volume", "Size", "Taken", "Mirror of", "Device", "Where", "GUID"}};
    std::string faults;
    std::vector<std::string> guids;
    for (const volume_view &view : volumes)
        guids.insert(guids.end(), {view.volume.guid, view.source});
    const auto shown = [&](const std::string &guid) {
        return are_tables_cut() ? short_guid(guid, guids) : guid;
    };
    for (const volume_view &view : volumes) {
        const volume_record &volume = view.volume;
        const std::string source = view.source_name.empty() ? shown(view.source) : view.source_name;
        rows.push_back({volume.name, size_text(volume.size), view.taken ? size_text(*view.taken) : "-",
                        source.empty() ? "-" : source, view.device.value_or("-"), volume.place,
                        shown(volume.guid)});
        if (!view.fault.empty())
            faults += "  " + visible(volume.name + ": " + view.fault) + "\n";
    }
    return align(rows) + (faults.empty() ? "" : "\n" + faults);
}

json_object volume_records(const std::vector<volume_view> &volumes)
{
    json_object list = json_object::array();
    for (const volume_view &view : volumes)
        list.push_back(volume_object(view));
    return list;
}
