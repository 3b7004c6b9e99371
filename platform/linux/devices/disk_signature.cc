#include "platform/linux/devices/disk_signature.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

disk_signature signature_in(const char *first_bytes)
{
    disk_signature signature;
    memcpy(signature.data(), first_bytes + signature_offset, signature.size());
    return signature;
}

std::optional<std::string> guid_of_signature(const disk_signature &signature)
{
    uint32_t number = 0;
    memcpy(&number, signature.data(), sizeof number);
    if (number == 0)
        return std::nullopt;
    char guid[64];
    snprintf(guid, sizeof guid, "%08x-0000-0000-0000-000000000000", number);
    return guid;
}

disk_signature signature_of_guid(const std::string &guid)
{
    const auto number = static_cast<uint32_t>(strtoul(guid.substr(0, 8).c_str(), nullptr, 16));
    disk_signature signature;
    memcpy(signature.data(), &number, sizeof number);
    return signature;
}
