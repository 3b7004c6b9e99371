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
struct command_row {
    uint32_t code;
    command_handler handler;
};

// clang-format off
constexpr command_row rows[] = {
    {1, scan_client},
    {add_client_code, add_client},
    {del_client_code, del_client},
    {4, add_backup},
    {5, establish_channels},
    {6, get_client_info},
    {8, rename_client},
    {14, del_backup},
    {15, set_cdp_schedule},
    {16, init_mirror},
    {17, cancel_init_mirror},
    {21, create_snapshot},
    {23, snap_restore},
    {45, db_set},
    {46, bg_create},
    {48, rem_disk_from_bg},
    {49, dbcfg_del},
    {54, refresh_server},
    {55, rescan_devices},
    {57, nop_command},
    {62, del_backup_grp},
    {69, add_disk_to_grp},
    {30000, kav_create_cdp},
    {30001, kav_set_cdp_schedule},
    {30002, kav_get_cdp_schedule},
    {30003, kav_del_cdp_schedule},
    {30004, kav_create_group},
    {30005, kav_get_group},
    {30006, kav_delete_group},
    {30007, kav_add_member},
    {30008, kav_del_member},
    {30010, local_list},
    {30011, local_withdraw},
};
// clang-format on

using command_table = std::array<command_handler, max_command_code + 1>;

constexpr bool rows_are_sound()
{
    uint32_t last = 0;
    for (const command_row &row : rows) {
        if (row.code <= last || row.code > max_command_code)
            return false;
        last = row.code;
    }
    return true;
}
static_assert(rows_are_sound(), "codes ascend, none twice, none past the table");

constexpr command_table make_table()
{
    command_table slots{};
    for (const command_row &row : rows)
        slots[row.code] = row.handler;
    return slots;
}

constexpr command_table table = make_table();
} // namespace

command_handler find_handler(uint32_t code)
{
    return code < table.size() ? table[code] : nullptr;
}
