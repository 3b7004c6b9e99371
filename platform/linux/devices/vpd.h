// SCSI vital product data, as sysfs hands out the raw pages (device/vpd_pg80, device/vpd_pg83). Layouts:
// SPC-4 (INCITS 513), "Unit Serial Number VPD page" and "Device Identification VPD page". Both functions
// take any bytes: a page that is short, or whose lengths point past its end, is read as far as it goes.
#pragma once

#include <optional>
#include <string>
#include <string_view>

// The unit serial number without braces if it has the form of a GUID (8-4-4-4-12 hexadecimal digits).
std::optional<std::string> guid_of_serial_page(std::string_view page);

// The identifier of the logical unit: its NAA name in lower-case hexadecimal, else its T10 vendor text; if it
// has neither, those of its target.
std::optional<std::string> identifier_of_designation_page(std::string_view page);
