#include "commands/databases.h"

#include "base/log.h"
#include "base/secret.h"
#include "base/xml.h"
#include "client/databases.h"
#include "client/inventory.h"
#include "commands/frame.h"
#include "protocol/commands.h"
#include "protocol/request.h"
#include "requests/databases.h"

#include <kavagt.h>

#include <algorithm>

namespace {
bool is_known(const optional_text &instance)
{
    const auto held = qel_inventory_lock();
    return std::any_of(g_inventory.dbs.begin(), g_inventory.dbs.end(),
                       [&](const qel_db_t &database) { return database.instance_name == instance; });
}

void refresh_databases()
{
    if (qel_refresh_databases() == 0)
        log_debug("Update 'g_client' databases info done");
}

int set_database(const request &req)
{
    bool is_cluster = false; // read, but not used
    const std::unique_ptr<qel_db_t> database = xml_to_KavApp(req.recv_xml.get(), &is_cluster);
    if (!database) {
        log_error("Failed to retrieve KavApp.");
        return status_failure;
    }
    database->host = "127.0.0.1";
    database->port = "1521";
    if (is_known(database->instance_name)) {
        log_debug("Database(%s) has already been set", printable(database->instance_name));
        return status_ok;
    }
    if (qel_connect_database(*database) == -1) {
        log_error("Failed to connect database(%s).", printable(database->instance_name));
        return status_database_failed;
    }
    refresh_databases();
    log_info("Complete work: DB_SET");
    return status_ok;
}

int delete_database(const request &req)
{
    bool is_cluster = false;
    const optional_text instance = xml_to_instance_name(req.recv_xml.get(), &is_cluster);
    if (!instance)
        return status_failure;
    if (!is_known(instance)) {
        log_debug("Configuration of database(%s) cannot be found in Kavcdpagt", instance->c_str());
        return status_ok;
    }
    if (Kav_delete_app(instance->c_str()) <= 0) {
        log_debug("Failed to delete kavcdpagt configuration of database(%s).", instance->c_str());
        return status_database_failed;
    }
    refresh_databases();
    log_info("Complete work: DBCFG_DEL");
    return status_ok;
}

// The two answers spell the attribute differently, as managers expect.
int answer(request &req, int status, const char *attribute)
{
    const xml_doc doc = xml_new_document("Tessaron");
    xmlNode *client = xml_add_element(xml_root(doc), "Client");
    {
        const auto held = qel_inventory_lock();
        xml_add_attribute(client, "ClientID", g_inventory.id);
    }
    xml_add_number(client, attribute, status);
    set_send_xml(req, xml_to_text(doc));
    return status;
}

struct database_command {
    const char *received;
    int (*run)(const request &req);
    const char *attribute;
};

// A client that is not adopted gets the same answer as any failure.
int process(const database_command &command, request *req)
{
    const bool may_go_on = enter_command({.received = command.received}, req) == status_ok;
    if (!req)
        return status_failure;
    const int status = answer(*req, may_go_on ? command.run(*req) : status_failure, command.attribute);
    wipe_dead_stack();
    return status;
}
} // namespace

int db_set(request *req)
{
    return process({.received = "Recv cmd: DB_SET", .run = set_database, .attribute = "rtnStatus"}, req);
}

int dbcfg_del(request *req)
{
    return process({.received = "Recv cmd: DBCFG_DEL", .run = delete_database, .attribute = "RtnStatus"},
                   req);
}
