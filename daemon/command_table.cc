#include "daemon/command_table.h"

#include "commands/channels.h"
#include "commands/databases.h"
#include "commands/groups.h"
#include "commands/membership.h"
#include "commands/mirrors.h"
#include "commands/protection.h"
#include "commands/schedules.h"
#include "commands/snapshots.h"
#include "protocol/commands.h"

#include <array>

namespace {
using command_table = std::array<command_handler, max_command_code + 1>;

// Every listed command has a handler of the same name.
constexpr command_table make_table()
{
    command_table slots{};
#define QELCD_SLOT(code, name) slots[code] = name;
    QELCD_COMMANDS(QELCD_SLOT)
#undef QELCD_SLOT
    return slots;
}

constexpr command_table table = make_table();
} // namespace

command_handler find_handler(uint32_t code)
{
    return code < table.size() ? table[code] : nullptr;
}
