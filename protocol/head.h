// The fixed head of every frame. A frame is this head and then data_len bytes of XML text.
#pragma once

#include <cstddef>
#include <cstdint>

constexpr uint8_t protocol_version = 2;

// Travels as raw memory, little-endian, the byte order of every platform that the daemon runs on.
struct message_head {
    uint8_t version;     // protocol_version in everything that the daemon sends
    uint8_t reserved_1;  // 0
    uint16_t ret;        // reply status: 0 success; 0 in requests
    uint16_t reserved_4; // 0
    uint16_t origin;     // sender tag; a reply carries that of its request
    uint32_t cmd;        // command code; a reply repeats it
    uint32_t data_len;   // bytes of body that follow; 0: no body
};

static_assert(sizeof(message_head) == 16);
static_assert(offsetof(message_head, ret) == 2);
static_assert(offsetof(message_head, origin) == 6);
static_assert(offsetof(message_head, cmd) == 8);
static_assert(offsetof(message_head, data_len) == 12);
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__);
