// What commands answer while no manager has adopted the host, and to requests that cannot be read. Nothing is
// done then: the script foresees no call, and the file stays as it was.
#include "tests/system/adopted_test.h"

namespace {
constexpr char client_missing[] = "Error: client is not protected by a server.";
constexpr char bad_snap[] = "Failed to parse snapshot creation request.";
constexpr char bad_group[] = "Failed to parse the XML doc of request.";

class refusals : public adopted_test {};
} // namespace

TEST_F(refusals, NothingIsDoneWithoutAdoptionNorForWhatCannotBeRead)
{
    const struct {
        uint32_t code;
        int not_adopted;
        const char *error; // that the log then tells, "" for none
        const char *request;
        int unreadable;
        const char *parse_error;
        const char *content = ""; // of the answer to what cannot be read
    } cases[] = {
        {command::rename_client, 1, "", "<Tessaron><Client/></Tessaron>", 1,
         "Failed to fetch client alias from xml"},
        {command::refresh_server, 50, "", "no document", 4, "Failed to fetch manager from xml"},
        {command::add_backup, 50, "Failed to add backup relationships for unprotected client.", "<Tessaron>",
         4, "Failed to fetch backup info from xml"},
        {command::del_backup, 50, "", "<Tessaron>", 1, "Failed to parse XML request."},
        {command::del_backup, 50, "", "<Tessaron><x/><BackupList/></Tessaron>", 1,
         "Failed to retrieve backup list."},
        {command::init_mirror, 50, "", "<Tessaron/>", 4, "Failed to retrieve node BackupList."},
        {command::cancel_init_mirror, 50, "", "<", 4, "Failed to parse XML doc."},
        {command::set_cdp_schedule, 50, "", "<", 1, "Failed to parse XML doc."},
        {command::set_cdp_schedule, 50, "", "<Tessaron><Backup Source='g'><Schedule/></Backup></Tessaron>", 1,
         "Failed to retrieve property SourceType of node Backup."},
        {command::create_snapshot, 50, client_missing, "<Tessaron/>", 4, bad_snap},
        {command::snap_restore, 50, "", "<", 4, "Failed to parse XML request for snapshot restoration."},
        {command::bg_create, 50, "Failed to create group, client is not affected to a server.", "<", 4,
         bad_group},
        {command::add_disk_to_grp, 50, "Failed to modify group, client is not protected.", "<Tessaron/>", 4,
         "Failed to retrieve the group of request."},
        {command::rem_disk_from_bg, 50, "", "<Other/>", 4, "Failed to parse request."},
        {command::del_backup_grp, 50, "Failed to process request, client is not protected.",
         "<Tessaron><BGDelete/></Tessaron>", 4, "Failed to retrive group to be deleted."},
        {command::kav_create_cdp, 50, client_missing, "<Tessaron><Snap SourceType='0'/></Tessaron>", 4,
         bad_snap},
        {command::kav_set_cdp_schedule, 50, client_missing, "<Snap/>", 4,
         "Invalid XML format, unexpected root element."},
        {command::kav_set_cdp_schedule, 50, client_missing, "<Tessaron><Snap/></Tessaron>", 4,
         "Failed to retrieve node Schedule."},
        {command::kav_get_cdp_schedule, 50, client_missing, "<Tessaron><Snap SourceType='0'/></Tessaron>", 4,
         "'Failed to parse snapshot creation request."},
        {command::kav_del_cdp_schedule, 50, client_missing, "<Tessaron/>", 4,
         "'Failed to parse snapshot creation request."},
        {command::kav_create_group, 50, client_missing, "<Tessaron/>", 4, bad_group},
        {command::kav_get_group, 50, client_missing, "<", 0, "", "<Tessaron><GroupList/></Tessaron>"},
        {command::kav_delete_group, 50, client_missing, "<Tessaron/>", 4, bad_group},
        {command::kav_add_member, 50, client_missing, "<Tessaron/>", 4, bad_group},
        {command::kav_del_member, 50, client_missing, "<Tessaron/>", 4, bad_group},
        {command::db_set, 1, "", "<Tessaron/>", 1, "Failed to retrieve KavApp.",
         R"(<Tessaron><Client ClientID="C-1" rtnStatus="1"/></Tessaron>)"},
        {command::dbcfg_del, 1, "", "<Other/>", 1, "Error: xml's root node must be 'Tessaron'",
         R"(<Tessaron><Client ClientID="C-1" RtnStatus="1"/></Tessaron>)"},
        {command::dbcfg_del, 1, "", "<Tessaron><DBCfgDel/></Tessaron>", 1, "",
         R"(<Tessaron><Client ClientID="C-1" RtnStatus="1"/></Tessaron>)"},
    };
    const auto is_database = [](uint32_t code) {
        return code == command::db_set || code == command::dbcfg_del;
    };
    write_config({.guid = "C-1"});
    daemon.start();
    for (const char *part :
         {"Failed to *", "Error: xml's root node must be 'Tessaron'", "Missing property BGName."})
        log.tolerate(part);
    for (const auto &one : cases)
        expect_answer(one.not_adopted, one.code, one.request, one.error,
                      is_database(one.code) ? one.content : "");
    write_config({.guid = "C-1", .manager_guid = "M-1", .manager_ips = {"127.0.0.1"}});
    qelcd::stop();
    daemon.start();
    const std::string file = read_file(config_file_path);
    for (const auto &one : cases)
        expect_answer(one.unreadable, one.code, one.request, one.parse_error, one.content);
    EXPECT_EQ(read_file(config_file_path), file);
}
