#include "tools/qelc/bodies/protection.h"

#include "base/xml.h"

namespace {
constexpr char wrap_front[] = "kav_{";
constexpr char wrap_back[] = "}";

xmlNode *add_schedule(xmlNode *parent, const snapshot_times &times)
{
    xmlNode *schedule = xml_add_element(parent, "Schedule");
    xml_add_unsigned(schedule, "StartTime", times.start);
    xml_add_unsigned(schedule, "IntervalSeconds", times.interval);
    return schedule;
}
} // namespace

const char *source_type(const snapshot_source &source)
{
    return source.is_group ? "1" : "0";
}

std::string wrap_guid(const std::string &guid)
{
    return wrap_front + guid + wrap_back;
}

std::string unwrap_guid(const std::string &text)
{
    constexpr size_t front = sizeof wrap_front - 1, back = sizeof wrap_back - 1;
    const bool wrapped =
        text.size() >= front + back && text.starts_with(wrap_front) && text.ends_with(wrap_back);
    return wrapped ? text.substr(front, text.size() - front - back) : text;
}

std::string protection_document(const std::vector<mirror_pair> &pairs, const snapshot_source &source,
                                const snapshot_times &times)
{
    const xml_doc doc = xml_new_document("Tessaron");
    xmlNode *list = xml_add_element(xml_root(doc), "BackupList");
    for (const mirror_pair &pair : pairs) {
        xmlNode *backup = xml_add_element(list, "Backup");
        xml_add_attribute(backup, "SrcGUID", pair.source);
        xml_add_attribute(backup, "KavGUID", wrap_guid(pair.mirror));
    }
    xmlNode *schedule = add_schedule(xml_root(doc), times);
    xml_add_attribute(schedule, "Source", source.name);
    xml_add_attribute(schedule, "SourceType", source_type(source));
    return xml_to_text(doc);
}

std::string disk_list_document(const std::vector<std::string> &sources)
{
    const xml_doc doc = xml_new_document("Tessaron");
    xmlNode *list = xml_add_element(xml_root(doc), "BackupList");
    for (const std::string &source : sources)
        xml_add_attribute(xml_add_element(list, "Backup"), "SrcGUID", source);
    return xml_to_text(doc);
}

std::string schedule_document(const snapshot_source &source, const snapshot_times &times)
{
    const xml_doc doc = xml_new_document("Tessaron");
    xmlNode *backup = xml_add_element(xml_root(doc), "Backup");
    xml_add_attribute(backup, "SourceType", source_type(source));
    xml_add_attribute(backup, "Source", source.name);
    add_schedule(backup, times);
    return xml_to_text(doc);
}
