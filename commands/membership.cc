#include "commands/membership.h"

#include "base/log.h"
#include "client/client.h"
#include "client/inventory.h"
#include "client/local_document.h"
#include "client/report.h"
#include "protocol/commands.h"

#include <kavdisk.h>

namespace {
bool is_adopted()
{
    const std::lock_guard held(g_client->lock);
    return qel_is_protected(g_client) != 0;
}
} // namespace

int scan_client(request *req)
{
    if (!req)
        return status_failure;
    log_info("Recv cmd: XR_OP_SCAN_CLIENT");
    if (is_adopted())
        return status_already_adopted;
    {
        const auto held = qel_inventory_lock();
        const qel_inventory_t *inventory = qel_get_inventory();
        if (!inventory) {
            log_error("Failed to get client");
            return status_failure;
        }
        set_send_xml(*req, client_to_xml(*inventory, nullptr, 0));
    }
    log_info("Complete work: SCAN_CLIENT");
    return status_ok;
}

int rescan_devices(request *req)
{
    if (!req)
        return status_failure;
    return kavdisk_rescan_dev(0) == 0 ? status_failure : status_ok;
}

int nop_command(request *req)
{
    return req ? status_ok : status_failure;
}

int local_list(request *req)
{
    if (!req)
        return status_failure;
    log_info("Recv cmd: LOCAL_LIST");
    optional_text document = qel_to_xml(g_client);
    if (!document)
        return status_failure;
    set_send_xml(*req, *std::move(document));
    log_info("Complete work: LOCAL_LIST");
    return status_ok;
}
