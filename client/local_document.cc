#include "client/local_document.h"

#include "base/log.h"
#include "base/number.h"
#include "base/xml.h"
#include "client/addresses.h"

#include <new>

namespace {
void add_schedule(xmlNode *root, const qel_cdpsch &schedule)
{
    xmlNode *node = xml_add_element(root, "CDPSchedule");
    xml_add_attribute(node, "Local", schedule.local_lun);
    xml_add_attribute(node, "Mirror", schedule.mirror_lun);
    xml_add_unsigned(node, "StartTime", schedule.cdp_start_time);
    xml_add_number(node, "Timeout", static_cast<int32_t>(schedule.cdp_timeout));
}

std::string build_document(const qel_t &c)
{
    const std::lock_guard reading(c.content_lock);
    const xml_doc doc = xml_new_document("Tessaron");
    xmlNode *root = xml_root(doc);
    xmlNode *client = xml_add_element(root, "Client");
    xml_add_attribute(client, "GUID", c.guid);
    xml_add_attribute(client, "Alias", c.alias);
    if (c.manager) {
        xmlNode *manager = xml_add_element(root, "Manager");
        xml_add_attribute(manager, "GUID", c.manager->guid);
        xml_add_attribute(manager, "IPs", join_addresses(c.manager->ip_list));
    }
    for (const qel_cdpsch &schedule : c.cdpsch_list)
        add_schedule(root, schedule);
    return xml_to_text(doc);
}

void read_client(const xmlNode *node, qel_t &c)
{
    optional_text guid = xml_attribute(node, "GUID");
    if (!guid)
        return;
    c.guid = std::move(guid);
    optional_text alias = xml_attribute(node, "Alias");
    if (alias && !alias->empty())
        c.alias = std::move(alias);
}

void read_manager(const xmlNode *node, qel_manager &manager)
{
    optional_text guid = xml_attribute(node, "GUID");
    if (!guid)
        return;
    manager.guid = std::move(guid);
    if (const optional_text addresses = xml_attribute(node, "IPs"))
        append_addresses(*addresses, manager.ip_list);
}

void read_schedule(const xmlNode *node, std::list<qel_cdpsch> &list)
{
    optional_text local = xml_attribute(node, "Local");
    optional_text mirror = xml_attribute(node, "Mirror");
    const optional_text start_time = xml_attribute(node, "StartTime");
    const optional_text timeout = xml_attribute(node, "Timeout");
    if (!local || !mirror || !start_time || !timeout)
        return;
    qel_cdpsch *schedule = list_append(list);
    if (!schedule) {
        log_error("Failed to allocate memoty");
        return;
    }
    schedule->local_lun = std::move(local);
    schedule->mirror_lun = std::move(mirror);
    schedule->cdp_start_time = static_cast<uint64_t>(scan_signed(start_time->c_str()));
    schedule->cdp_timeout = static_cast<uint32_t>(scan_int(timeout->c_str()));
}

std::unique_ptr<qel_t> read_document(const xmlNode *root)
{
    auto c = std::make_unique<qel_t>();
    c->manager = std::make_unique<qel_manager>();
    for (const xmlNode *child : xml_children{root}) {
        if (xml_is_named(child, "Client"))
            read_client(child, *c);
        else if (xml_is_named(child, "Manager"))
            read_manager(child, *c->manager);
        else if (xml_is_named(child, "CDPSchedule"))
            read_schedule(child, c->cdpsch_list);
    }
    return c;
}
} // namespace

optional_text qel_to_xml(const qel_t *c)
{
    if (!c)
        return std::nullopt;
    log_debug("Get Tessaron_LClient info");
    try {
        std::string text = build_document(*c);
        log_debug("Complete getting Tessaron_LClient info");
        return text;
    } catch (const std::bad_alloc &) {
        log_error("Failed to allocate memory");
        return std::nullopt;
    }
}

std::unique_ptr<qel_t> xml_to_qel(const char *text)
{
    if (!text)
        return nullptr;
    const xml_doc doc = xml_parse_text(text);
    if (!doc) {
        log_error("Failed to parse xml document");
        return nullptr;
    }
    const xmlNode *root = xml_root(doc);
    if (!root) {
        log_error("Empty xml document");
        return nullptr;
    }
    if (!xml_is_named(root, "Tessaron")) {
        log_error("Error: xml's root node must be 'Tessaron'");
        return nullptr;
    }
    return read_document(root);
}
