#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <set>
#include <string>

namespace {

std::set<std::string> exported_symbols(const std::string &file)
{
    std::set<std::string> names;
    const std::unique_ptr<FILE, int (*)(FILE *)> nm(
        popen(("nm -D --defined-only --format=posix '" + file + "'").c_str(), "r"), pclose);
    char line[512];
    while (fgets(line, sizeof(line), nm.get()))
        names.insert(std::string(line, std::string(line).find(' ')));
    return names;
}

TEST(PlatformLibraries, ExportTheirFunctionsAndNothingElse)
{
    const std::pair<const char *, std::set<std::string>> libraries[] = {
        {KAVDISK_FILE, {"kavdisk_get_devs", "kavdisk_free_devs", "kavdisk_rescan_dev", "get_part_type"}},
        {TW_FILE,
         {"tw_disk_stat", "tw_disk_stat_release", "tw_disk_protect", "tw_disk_unprotect", "tw_disk_resync",
          "tw_disk_stop_sync", "tw_scsi_get_guid"}},
        {KAVDEV_FILE, {"kav_device_probe_all"}},
        {KAVAGT_FILE,
         {"kav_call_disk_markcdp", "kav_call_grp_markcdp", "Kav_connect_db_flush_cfg", "Kav_delete_app",
          "Kav_list_app", "Kav_list_dev", "Kav_delete_dev"}},
    };
    for (const auto &[file, expected] : libraries)
        EXPECT_EQ(exported_symbols(file), expected) << file;
}

} // namespace
