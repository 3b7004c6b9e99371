#include "requests/backups.h"

#include "base/log.h"
#include "base/number.h"
#include "requests/document.h"
#include "requests/snapshots.h"

namespace {
enum class source_result { taken, stuck, failed };

source_result read_source(const xmlNode *node, std::list<std::string> &list)
{
    if (!xml_is_named(node, "Backup")) {
        log_warning("Unexpected node %s.", reinterpret_cast<const char *>(node->name));
        return source_result::stuck;
    }
    optional_text guid = xml_attribute(node, "SrcGUID");
    if (!guid) {
        log_warning("Missing property SrcGUID.");
        return source_result::stuck;
    }
    std::string *entry = list_append(list);
    if (!entry) {
        log_error("Failed to allocate memory for backup disks.");
        return source_result::failed;
    }
    *entry = std::move(*guid);
    log_info("Got source disk %s.", entry->c_str());
    return source_result::taken;
}

optional_text required(const xmlNode *schedule, const char *name)
{
    optional_text value = xml_attribute(schedule, name);
    if (!value)
        log_error("Failed to get %s property.", name);
    return value;
}

int read_schedule(const xmlNode *node, cdp_schedule &schedule, std::string &group)
{
    const optional_text start_time = required(node, "StartTime");
    if (!start_time)
        return -1;
    schedule.start_time = scan_unsigned(start_time->c_str());
    const optional_text interval = required(node, "IntervalSeconds");
    if (!interval)
        return -1;
    schedule.interval = scan_u32(interval->c_str());
    const optional_text source = required(node, "Source");
    if (!source)
        return -1;
    const optional_text source_type_text = required(node, "SourceType");
    if (!source_type_text)
        return -1;
    const int source_type = scan_int(source_type_text->c_str());
    log_info("Schedule dumped: start time: %lu, interval: %u, source type: %d.", schedule.start_time,
             schedule.interval, source_type);
    if (source_type == snap_group) {
        group = *source;
        log_info("Add backup for group: %s.", group.c_str());
    } else {
        log_info("Add backup for single disk: %s.", source->c_str());
    }
    return 0;
}

int read_disk(const xmlNode *node, std::list<qel_cdpsch> &list)
{
    if (!xml_is_named(node, "Backup")) {
        log_warning("Unknown backup node.");
        return 0;
    }
    qel_cdpsch *disk = list_append(list);
    if (!disk) {
        log_error("Failed to allocate memory for CDP schedule.");
        return -1;
    }
    disk->local_lun = xml_attribute(node, "SrcGUID");
    if (const optional_text mirror = xml_attribute(node, "KavGUID")) {
        log_info("Got KAV GUID: %s.", mirror->c_str());
        disk->mirror_lun = drop_wrapping(*mirror);
    }
    log_info("Read disk to be protected, local: %s, mirror: %s.", printable(disk->local_lun),
             printable(disk->mirror_lun));
    return 0;
}
} // namespace

int xml_to_bp_srcguid(const char *text, std::list<std::string> *list)
{
    if (!text) {
        log_error("Failed to parse XML request, null pointer.");
        return -1;
    }
    const xml_doc doc = open_document(
        text, {.unreadable = "Failed to parse XML request.", .empty = "Failed to retrieve root element."});
    if (!doc)
        return -1;
    const xmlNode *node = find_child(xml_root(doc), "BackupList");
    if (!node) {
        log_error("Failed to retrieve node BackupList.");
        return -1;
    }
    for (const xmlNode *child = node->children; child;) {
        const source_result result = read_source(child, *list);
        if (result == source_result::failed)
            return -1;
        // A child without a source loops here for ever, as in xml_to_backup_grp.
        if (result == source_result::taken)
            child = child->next;
    }
    return 0;
}

int xml_to_cdpsch_list(const char *text, std::list<qel_cdpsch> *list, cdp_schedule *schedule,
                       std::string *group)
{
    if (!text) {
        log_error("Error, empty XML doc.");
        return -1;
    }
    if (!group) {
        log_error("Parameter grp is null, it must be initialized.");
        return -1;
    }
    const xml_doc doc = open_document(text, {.wrong_root = "Error: Unexpected root element."});
    if (!doc)
        return -1;
    const xmlNode *backups = find_child(xml_root(doc), "BackupList");
    const xmlNode *timing = find_child(xml_root(doc), "Schedule");
    if (!backups || !timing) {
        log_error("Failed to retrieve node BackupList or Schedule.");
        return -1;
    }
    if (read_schedule(timing, *schedule, *group) < 0)
        return -1;
    for (const xmlNode *child : xml_children{backups}) {
        if (read_disk(child, *list) < 0)
            return -1;
    }
    log_info("Retrieving CDP schedule for specified disks.");
    for (qel_cdpsch &disk : *list) {
        disk.cdp_start_time = schedule->start_time;
        disk.cdp_timeout = schedule->interval;
    }
    log_info("CDP schedule retrieved.");
    return 0;
}

int xml_to_volname(std::string *source, std::string *destination, const char *text)
{
    const xml_doc doc = open_document(text);
    if (!doc)
        return -1;
    const xmlNode *backup = first_child_named(doc, "Backup");
    if (!backup)
        return -1;
    copy_attribute(backup, "SrcGUID", source);
    if (const optional_text guid = xml_attribute(backup, "DestGUID"))
        *destination = drop_wrapping(*guid);
    return 0;
}

int xml_to_released_disks(const char *text, std::list<optional_text> *list)
{
    const xml_doc doc = text ? xml_parse_text(text) : nullptr;
    if (!doc) {
        log_error("Failed to parse XML request.");
        return -1;
    }
    const xmlNode *root = xml_root(doc);
    if (!root) {
        log_error("Failed to retrieve root element.");
        return -1;
    }
    const xmlNode *backups = first_child_named(doc, "BackupList");
    if (!backups) {
        log_error("Failed to retrieve backup list.");
        return -1;
    }
    for (const xmlNode *child : xml_children{backups}) {
        if (child->type == XML_ELEMENT_NODE)
            list->push_back(xml_attribute(child, "SrcGUID"));
    }
    return 0;
}
