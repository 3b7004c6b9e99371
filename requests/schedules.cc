#include "requests/schedules.h"

#include "base/log.h"
#include "base/number.h"
#include "requests/document.h"

namespace {
// LABEL is what the log calls the element.
const xmlNode *required_child(const xmlNode *parent, const char *name, const char *label)
{
    const xmlNode *child = find_child(parent, name);
    if (!child)
        log_error("Failed to retrieve node %s.", label);
    return child;
}

// Stores the attribute. False after a log line when there is none.
bool read_attribute(const xmlNode *node, const char *label, const char *name, std::string &value)
{
    optional_text text = xml_attribute(node, name);
    if (!text) {
        log_error("Failed to retrieve property %s of node %s.", name, label);
        return false;
    }
    value = *std::move(text);
    return true;
}
} // namespace

int xml_to_schedule(const char *text, const char *element, schedule_request *wanted)
{
    const xml_doc doc = open_document(text, {.unreadable = "Failed to parse XML doc.",
                                             .empty = "Invalid XML format, unexpected root element.",
                                             .wrong_root = "Invalid XML format, unexpected root element."});
    if (!doc)
        return -1;
    const xmlNode *source = required_child(xml_root(doc), element, "Backup");
    const xmlNode *schedule = source ? required_child(source, "Schedule", "Schedule") : nullptr;
    std::string source_type;
    std::string start;
    std::string interval;
    if (!schedule || !read_attribute(source, "Backup", "SourceType", source_type) ||
        !read_attribute(source, "Backup", "Source", wanted->source) ||
        !read_attribute(schedule, "Schedule", "StartTime", start) ||
        !read_attribute(schedule, "Schedule", "IntervalSeconds", interval))
        return -1;
    log_info("Received new schedule, console start time: %s, interval: %s", start.c_str(), interval.c_str());
    wanted->is_group = source_type == "1";
    wanted->start_time = scan_unsigned(start.c_str());
    wanted->interval = scan_u32(interval.c_str());
    return 0;
}
