// Which handler serves which command code.
#pragma once

#include "protocol/request.h"

#include <cstdint>

// Takes the exchange, may set the reply's body, and returns the reply's status, of which 16 bits are sent.
using command_handler = int (*)(request *req);

// The handler of a code; null for an empty slot or a code beyond the table.
command_handler find_handler(uint32_t code);
