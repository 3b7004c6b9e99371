#include "commands/mirrors.h"

#include "base/log.h"
#include "base/xml.h"
#include "commands/frame.h"
#include "protocol/commands.h"
#include "protocol/request.h"
#include "requests/backups.h"

#include <tw.h>

namespace {
using guid_list = std::list<std::string>;

// Sets the answer that lists the disks that failed; none if FAILED is empty.
void report_failures(request &req, const guid_list &failed, uint16_t code)
{
    if (failed.empty())
        return;
    const xml_doc doc = xml_new_document("Tessaron");
    xmlNode *list = xml_add_element(xml_root(doc), "BackupList");
    for (const std::string &guid : failed) {
        xmlNode *disk = xml_add_element(list, "Backup");
        xml_add_attribute(disk, "SrcGUID", guid);
        xml_add_unsigned(disk, "RtnStatus", code);
    }
    xml_add_unsigned(list, "Count", failed.size());
    set_send_xml(req, xml_to_text(doc));
}

bool start_resync(const std::string &guid)
{
    if (tw_disk_resync(guid.c_str(), 0) >= 0)
        return true;
    log_error("Failed to initialize mirror %s.", guid.c_str());
    return false;
}

bool stop_resync(const std::string &guid)
{
    return tw_disk_stop_sync(guid.c_str()) >= 0;
}
} // namespace

int init_mirror(request *req)
{
    const int status = enter_command({.received = "Recv cmd: INIT_MIRROR"}, req);
    if (status != status_ok)
        return status;
    guid_list disks;
    if (xml_to_bp_srcguid(req->recv_xml.get(), &disks) < 0)
        return status_unreadable_request;
    log_info("Launching mirror initialization.");
    disks.remove_if(start_resync);
    report_failures(*req, disks, status_init_failed);
    if (!disks.empty()) {
        log_info("Some mirrors are not initialized correctly.");
        return status_failure;
    }
    log_info("All mirrors are initialized successfully.");
    return status_ok;
}

int cancel_init_mirror(request *req)
{
    const int status = enter_command({.received = "Recv cmd: CANCEL_INIT_MIRROR",
                                      .null_request = "Failed to parse request, null pointer."},
                                     req);
    if (status != status_ok)
        return status;
    guid_list disks;
    if (xml_to_bp_srcguid(req->recv_xml.get(), &disks) < 0) {
        log_error("Failed to parse XML doc.");
        return status_unreadable_request;
    }
    disks.remove_if(stop_resync);
    report_failures(*req, disks, status_cancel_init_failed);
    return status_ok;
}
