// SCSI vital product data: an identifier is a GUID, a name in hexadecimal, or a text that can be printed.
#include "platform/linux/devices/vpd.h"

#include "tests/fuzz/fuzz.h"

#include <algorithm>

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string page(reinterpret_cast<const char *>(data), size);
    if (const auto guid = guid_of_serial_page(page))
        require(guid->size() == 36 && guid->find_first_not_of("0123456789abcdefABCDEF-") == std::string::npos,
                "a serial number has the form of a GUID");
    if (const auto identifier = identifier_of_designation_page(page))
        require(!identifier->empty() && identifier->size() < 256 &&
                    std::all_of(identifier->begin(), identifier->end(),
                                [](char c) { return c >= ' ' && c <= '~'; }),
                "an identifier can be printed");
    return 0;
}
