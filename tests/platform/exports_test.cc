#include "tests/support/files.h"

#include <gtest/gtest.h>

namespace {

TEST(PlatformLibraries, ExportTheirFunctionsAndNothingElse)
{
    const std::pair<const char *, const char *> libraries[] = {
        {KAVDISK_FILE, "get_part_type kavdisk_free_devs kavdisk_get_devs kavdisk_rescan_dev "},
        {TW_FILE, "tw_disk_protect tw_disk_resync tw_disk_stat tw_disk_stat_now tw_disk_stat_release "
                  "tw_disk_stop_sync "
                  "tw_disk_unprotect tw_hold_at_level tw_scsi_get_guid "},
        {KAVDEV_FILE, "kav_device_probe_all "},
        {KAVAGT_FILE, "Kav_connect_db_flush_cfg Kav_delete_app Kav_delete_dev Kav_list_app Kav_list_dev "
                      "kav_call_disk_markcdp kav_call_grp_markcdp "},
    };
    for (const auto &[file, symbols] : libraries) {
        const std::string names = "nm -D --defined-only --format=posix '" + std::string(file) + "'";
        EXPECT_EQ(output_of(names + " | cut -d' ' -f1 | LC_ALL=C sort | tr '\\n' ' '"), symbols) << file;
    }
}

} // namespace
