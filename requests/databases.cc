#include "requests/databases.h"

#include "base/log.h"
#include "base/number.h"
#include "requests/document.h"

#include <kavagt.h>

#include <new>

std::unique_ptr<qel_db_t> xml_to_KavApp(const char *text, bool *is_cluster)
{
    *is_cluster = false;
    const xml_secrets wiped;
    const xml_doc doc = open_document(text);
    if (!doc)
        return nullptr;
    std::unique_ptr<qel_db_t> database(new (std::nothrow) qel_db_t);
    if (!database) {
        log_error("Failed to allocate memory for db config.");
        return nullptr;
    }
    const xmlNode *node = find_child(xml_root(doc), "DBSet");
    if (!node) {
        log_error("Failed to retrieve DBSet node.");
        return nullptr;
    }
    if (xml_attribute(node, "DBType") == "0") {
        database->db_type = KAVAPP_DB_ORACLE;
        database->db_name = "oracle";
    }
    database->db_user = xml_attribute(node, "DBUser");
    database->db_passwd = xml_secret(node, "DBPasswd");
    database->instance_name = xml_attribute(node, "InstanceName");
    if (const optional_text archive_log = xml_attribute(node, "ArchiveLog"))
        database->archive_log = scan_int(archive_log->c_str());
    database->oracle_home = xml_attribute(node, "OracleHome");
    *is_cluster = is_true(xml_attribute(node, "IsCluster"));
    return database;
}

optional_text xml_to_instance_name(const char *text, bool *is_cluster)
{
    const xml_doc doc = open_document(text);
    if (!doc)
        return std::nullopt;
    const xmlNode *node = find_child(xml_root(doc), "DBCfgDel");
    if (!node) {
        log_error("Failed to retrieve node DBCfgDel.");
        return std::nullopt;
    }
    optional_text name = xml_attribute(node, "InstanceName");
    if (const optional_text cluster = xml_attribute(node, "IsCluster"))
        *is_cluster = is_true(cluster);
    log_debug("xml_to_instance_name:%s", printable(name));
    return name;
}
