#include "platform/linux/devices/scsi_guid.h"

#include "platform/linux/devices/vpd.h"
#include "platform/linux/host/sysfs.h"
#include "platform/linux/host/text.h"

std::optional<std::string> read_scsi_guid(const std::string &folder)
{
    auto guid = guid_of_serial_page(read_bytes(folder + "/device/vpd_pg80").value_or(""));
    if (!guid)
        guid = identifier_of_designation_page(read_bytes(folder + "/device/vpd_pg83").value_or(""));
    return guid;
}

bool is_storage_volume(const char *vendor, const char *model)
{
    return vendor && model && (trim_padding(vendor) == "QRZ" || trim_padding(model) == "KAVSolution");
}
