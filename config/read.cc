#include "base/log.h"
#include "base/number.h"
#include "config/config.h"
#include "config/sections.h"

#include <unistd.h>

namespace {
xml_doc open_config(const char *path)
{
    xml_doc doc = xml_parse_file(path);
    if (!doc) {
        log_error("Failed to parse config file: %s", path);
        return nullptr;
    }
    const xmlNode *root = xml_root(doc);
    if (!root) {
        log_error("Failed to retrieve root node of config file.");
        return nullptr;
    }
    if (!xml_is_named(root, "Tessaron")) {
        log_error("Config file format error.");
        return nullptr;
    }
    return doc;
}

// An element without content leaves the value as it is.
void read_text(const xmlNode *node, optional_text &value)
{
    if (optional_text text = xml_content(node))
        value = std::move(text);
}

void read_port(const xmlNode *node, int &port)
{
    if (const optional_text text = xml_content(node))
        port = scan_int(text->c_str());
}

int read_manager(const xmlNode *node, qel_t &c)
{
    std::unique_ptr<qel_manager> manager = _cfg_xml_to_mngr(node);
    if (!manager)
        return -1;
    c.manager = std::move(manager);
    return 0;
}

int checked(int result, const char *message)
{
    if (result < 0)
        log_error("%s", message);
    return result;
}

int read_child(const xmlNode *node, qel_t &c)
{
    if (xml_is_named(node, "ClientGUID"))
        read_text(node, c.guid);
    else if (xml_is_named(node, "ClientAlias"))
        read_text(node, c.alias);
    else if (xml_is_named(node, "ClientPort"))
        read_port(node, c.client_port);
    else if (xml_is_named(node, "ServerPort"))
        read_port(node, c.server_port);
    else if (xml_is_named(node, "IPAddrFilter"))
        return checked(_cfg_xml_to_filter(node, &c.filter_list), "Failed to initialize IP filter.");
    else if (xml_is_named(node, "Manager"))
        return checked(read_manager(node, c), "Failed to load manager informations from config file.");
    else if (xml_is_named(node, "DiskGroupList"))
        return checked(_cfg_xml_to_grp(node, &c.group_list), "Failed to load consistency groups.");
    else if (xml_is_named(node, "CDPScheduleList"))
        return checked(_cfg_xml_to_cdpsch(node, &c.cdpsch_list), "Failed to load CDP schedules.");
    return 0;
}
} // namespace

std::unique_ptr<qel_t> qelcfg_read(const char *path)
{
    if (!path)
        return nullptr;
    if (access(path, F_OK) != 0) {
        log_error("Failed to find '%s'", path);
        return nullptr;
    }
    std::unique_ptr<qel_t> c(new (std::nothrow) qel_t);
    if (!c) {
        log_error("Failed to allocate memory for qel_t.");
        return nullptr;
    }
    const xml_doc doc = open_config(path);
    if (!doc)
        return nullptr;
    for (const xmlNode *child : xml_children{xml_root(doc)}) {
        if (read_child(child, *c) < 0)
            return nullptr;
    }
    return c;
}
