// Every command code with its name, and every reply status with its meaning. The daemon's table, the tools
// and their help, and the tests are all made from these lists.
#pragma once

#include <cstdint>
#include <iterator>

// Codes up to 69 come from the manager, codes from 30000 from local programs; each is served on both sockets.
#define QELCD_COMMANDS(X)                                                                                    \
    X(1, scan_client)                                                                                        \
    X(2, add_client)                                                                                         \
    X(3, del_client)                                                                                         \
    X(4, add_backup)                                                                                         \
    X(5, establish_channels)                                                                                 \
    X(6, get_client_info)                                                                                    \
    X(8, rename_client)                                                                                      \
    X(14, del_backup)                                                                                        \
    X(15, set_cdp_schedule)                                                                                  \
    X(16, init_mirror)                                                                                       \
    X(17, cancel_init_mirror)                                                                                \
    X(21, create_snapshot)                                                                                   \
    X(23, snap_restore)                                                                                      \
    X(45, db_set)                                                                                            \
    X(46, bg_create)                                                                                         \
    X(48, rem_disk_from_bg)                                                                                  \
    X(49, dbcfg_del)                                                                                         \
    X(54, refresh_server)                                                                                    \
    X(55, rescan_devices)                                                                                    \
    X(57, nop_command)                                                                                       \
    X(62, del_backup_grp)                                                                                    \
    X(69, add_disk_to_grp)                                                                                   \
    X(30000, kav_create_cdp)                                                                                 \
    X(30001, kav_set_cdp_schedule)                                                                           \
    X(30002, kav_get_cdp_schedule)                                                                           \
    X(30003, kav_del_cdp_schedule)                                                                           \
    X(30004, kav_create_group)                                                                               \
    X(30005, kav_get_group)                                                                                  \
    X(30006, kav_delete_group)                                                                               \
    X(30007, kav_add_member)                                                                                 \
    X(30008, kav_del_member)                                                                                 \
    X(30010, local_list)                                                                                     \
    X(30011, local_withdraw)

// The codes by name: command::scan_client.
namespace command {
#define QELCD_COMMAND_CODE(code, name) name = code,
enum code : uint32_t { QELCD_COMMANDS(QELCD_COMMAND_CODE) };
#undef QELCD_COMMAND_CODE
} // namespace command

// What the daemon itself sends to the manager.
constexpr uint32_t heartbeat_command = 32;
constexpr uint16_t heartbeat_origin = 3;

struct command_name {
    uint32_t code;
    const char *name;
};

#define QELCD_COMMAND_NAME(code, name) {code, #name},
constexpr command_name command_names[] = {QELCD_COMMANDS(QELCD_COMMAND_NAME)};
#undef QELCD_COMMAND_NAME

constexpr bool are_codes_ascending()
{
    for (const command_name *known = command_names; known + 1 != std::end(command_names); ++known) {
        if (known[0].code >= known[1].code)
            return false;
    }
    return true;
}
static_assert(are_codes_ascending(), "codes ascend without duplicates");

constexpr uint32_t max_command_code = std::end(command_names)[-1].code;

// Reply statuses. A reply carries 16 bits of the handler's status.
struct status_meaning {
    uint16_t status;
    const char *meaning;
};

constexpr uint16_t status_ok = 0;
constexpr uint16_t status_failure = 1;
constexpr uint16_t status_unreadable_request = 4;
constexpr uint16_t status_not_adopted = 50;
constexpr uint16_t status_already_adopted = 52;
constexpr uint16_t status_still_protected = 10000;
constexpr uint16_t status_disk_not_released = 10016;
constexpr uint16_t status_init_failed = 10018;
constexpr uint16_t status_cancel_init_failed = 10019;
constexpr uint16_t status_snapshot_failed = 10021;
constexpr uint16_t status_not_synchronised = 10023;
constexpr uint16_t status_no_backup = 10024;
constexpr uint16_t status_no_initiator_tool = 10025;
constexpr uint16_t status_database_failed = 10028;
constexpr uint16_t status_group_in_use = 10029;
constexpr uint16_t status_no_initiator_service = 10031;
constexpr uint16_t status_channel_failure = 10039;

constexpr status_meaning status_meanings[] = {
    {status_ok, "success"},
    {status_failure, "failure"},
    {status_unreadable_request, "the request document could not be read"},
    {status_not_adopted, "no manager has adopted this client"},
    {status_already_adopted, "a manager has already adopted this client"},
    {status_still_protected, "the client cannot be released while disks are protected"},
    {status_disk_not_released, "a disk could not be released from protection"},
    {status_init_failed, "mirror initialisation failed"},
    {status_cancel_init_failed, "cancelling the mirror initialisation failed"},
    {status_snapshot_failed, "the CDP agent failed to take a snapshot"},
    {status_not_synchronised, "a disk is not synchronised yet"},
    {status_no_backup, "a disk has no backup relationship"},
    {status_no_initiator_tool, "the iSCSI initiator tool is not installed"},
    {status_database_failed, "database configuration failed"},
    {status_group_in_use, "the group name is already in use"},
    {status_no_initiator_service, "the iSCSI login failed and the iSCSI service does not run"},
    {status_channel_failure, "the iSCSI channel could not be established"},
};
