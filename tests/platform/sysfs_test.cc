// The libraries on a host of our making: a /sys and a /run of the test's own.
#include "platform/include/kavdev.h"
#include "platform/include/tw.h"
#include "tests/platform/captured_log.h"
#include "tests/platform/host.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <optional>

namespace {

using namespace std::string_literals;

class MadeHost : public testing::Test {
protected:
    void SetUp() override
    {
        std::string reason;
        if (!enter_private_mounts(reason))
            GTEST_SKIP() << reason;
        sys.emplace("/sys");
        run_folder.emplace("/run");
        take_log();
    }

    void add_disk(const std::string &name, const std::string &sectors, const std::string &device = "8:0\n")
    {
        const std::string folder = "/sys/block/" + name;
        std::filesystem::create_directories(folder + "/holders");
        write_file(folder + "/size", sectors);
        write_file(folder + "/dev", device);
        write_file(folder + "/ro", "0\n");
        write_file(folder + "/removable", "0\n");
    }

    bool log_has(const std::string &text)
    {
        const std::string log = take_log();
        return log.find(text) != log.npos || !(std::cout << "log: " << log);
    }

    std::optional<covered_folder> sys;
    std::optional<covered_folder> run_folder;
};

TEST_F(MadeHost, OddAndVanishingDevicesDoNotSpoilTheList)
{
    add_disk("sdx", "4096\n");
    write_file("/sys/block/sdx/device/vendor", "QRZ     \n");
    write_file("/sys/block/sdx/device/model", std::string(200000, 'm') + "\n");
    write_file("/sys/block/sdx/sdx1/partition", "one\n");
    add_disk("cciss!c0d0", "18446744073709551615\n");
    write_file("/sys/block/cciss!c0d0/device/vendor", "");
    for (const char *no_disk : {"ram0", "zram1", "loop7"})
        add_disk(no_disk, "4096\n");
    add_disk("hidden", "4096\n");
    write_file("/sys/block/hidden/hidden", "1\n");
    add_disk("garbage", "12 apples\n");
    add_disk("overflow", "18446744073709551616\n");
    add_disk("numberless", "4096\n", "8\n");
    std::filesystem::create_directory("/sys/block/vanished");
    mkfifo("/sys/block/fifo", 0600);

    const disk_list disks(1);
    ASSERT_EQ(disks.result, 0);
    const kavdisk_dev *plain = disks.find("/dev/sdx");
    const kavdisk_dev *slash = disks.find("/dev/cciss/c0d0");
    ASSERT_TRUE(plain && slash);
    EXPECT_EQ(slash->link.next, &plain->link) << "just these two, sorted";
    EXPECT_EQ(plain->link.next, &disks.head);
    EXPECT_STREQ(plain->vendor, "QRZ     ");
    EXPECT_EQ(std::string(plain->model).substr(0, 1000), std::string(1000, 'm'));
    EXPECT_EQ(plain->sectors, 4096U);
    EXPECT_TRUE(kav_list_empty(&plain->parts));
    EXPECT_STREQ(slash->name, "cciss!c0d0");
    EXPECT_STREQ(slash->vendor, "");
    EXPECT_EQ(slash->model, nullptr);
    EXPECT_EQ(slash->sectors, UINT64_MAX);
    EXPECT_EQ(plain->state + slash->state, 0U) << "they have no node that could be read";
    EXPECT_TRUE(log_has("garbage"));
}

TEST_F(MadeHost, WithoutBlockFolderTheListFails)
{
    const disk_list disks(1);
    EXPECT_EQ(disks.result, -1);
    EXPECT_TRUE(kav_list_empty(&disks.head));
    EXPECT_TRUE(log_has("/sys/block"));
}

TEST_F(MadeHost, RescanWritesToEveryScsiHostAndReportsTheOneThatRefuses)
{
    EXPECT_EQ(kavdisk_rescan_dev(0), 1) << "no SCSI at all";
    const std::string hosts = "/sys/class/scsi_host";
    write_file(hosts + "/host0/scan", "");
    write_file(hosts + "/host2/scan", "");
    EXPECT_EQ(kavdisk_rescan_dev(0), 1);
    EXPECT_EQ(take_log(), "");
    std::filesystem::create_directories(hosts + "/host1/scan");
    EXPECT_EQ(kavdisk_rescan_dev(0), 0);
    EXPECT_TRUE(log_has("host1/scan"));
    for (const char *host : {"/host0/scan", "/host2/scan"})
        EXPECT_EQ(read_file(hosts + host), "- - -") << host;
}

TEST_F(MadeHost, ProbeWithoutUdevGoesThroughSysfs)
{
    write_file("/sys/block/sda/device/rescan", "");
    std::filesystem::create_directories("/sys/block/vda/device");
    write_file("/sys/class/block/sda/uevent", "");
    write_file("/sys/class/block/sda1/uevent", "");
    EXPECT_EQ(kav_device_probe_all(1), 0);
    EXPECT_EQ(read_file("/sys/block/sda/device/rescan"), "1");
    EXPECT_FALSE(std::filesystem::exists("/sys/block/vda/device/rescan"));
    EXPECT_EQ(read_file("/sys/class/block/sda/uevent"), "change");
    EXPECT_EQ(read_file("/sys/class/block/sda1/uevent"), "change");
    EXPECT_EQ(take_log(), "");
    std::filesystem::create_directories("/sys/block/aaa/device/rescan");
    EXPECT_LT(kav_device_probe_all(1), 0);
    EXPECT_TRUE(log_has("/sys/block/aaa/device/rescan"));
}

TEST_F(MadeHost, ProbeWithUdevTriggersAndSettles)
{
    const temp_folder tools;
    const std::string path = getenv("PATH");
    write_file("/run/udev/control", "");
    write_file(tools.path + "/udevadm",
               "#!/bin/sh\necho \"$@\" >>" + tools.path + "/calls\nexit $UDEVADM_STATUS\n");
    chmod((tools.path + "/udevadm").c_str(), 0755);
    setenv("PATH", (tools.path + ":" + path).c_str(), 1);
    setenv("UDEVADM_STATUS", "0", 1);
    EXPECT_EQ(kav_device_probe_all(1), 0);
    EXPECT_EQ(read_file(tools.path + "/calls"),
              "trigger --subsystem-match=block --action=change\nsettle --timeout=10\n");
    setenv("UDEVADM_STATUS", "1", 1);
    EXPECT_LT(kav_device_probe_all(1), 0);
    EXPECT_TRUE(log_has("udevadm trigger"));
    setenv("PATH", "/nowhere", 1);
    EXPECT_LT(kav_device_probe_all(1), 0);
    EXPECT_TRUE(log_has("Cannot run udevadm trigger"));
    setenv("PATH", path.c_str(), 1);
}

// /dev/null stands in for a disk: only its name counts here.
TEST_F(MadeHost, ScsiGuidComesFromTheSerialElseFromTheDesignators)
{
    const std::string serial = "0a1b2c3d-1111-2222-3333-444455556666";
    const temp_folder folder;
    const std::string link = folder.path + "/by-id";
    std::filesystem::create_symlink("/dev/null", link);
    char buffer[64] = "before";
    EXPECT_LT(tw_scsi_get_guid("/dev/null", buffer, sizeof(buffer)), 0);
    EXPECT_TRUE(log_has("/dev/null"));

    write_file("/sys/block/null/device/vpd_pg83", "\0\x83\0\x0c\1\3\0\x08\x50\1\x43\x80\0\0\0\1"s);
    EXPECT_LT(tw_scsi_get_guid("/dev/null", buffer, 16), 0) << "one byte short";
    EXPECT_STREQ(buffer, "before");
    EXPECT_EQ(tw_scsi_get_guid("/dev/null", buffer, 17), 0);
    EXPECT_STREQ(buffer, "5001438000000001");

    write_file("/sys/block/null/device/vpd_pg80", "\0\x80\0\x28{"s + serial + "}  ");
    EXPECT_EQ(tw_scsi_get_guid(link.c_str(), buffer, sizeof(buffer)), 0);
    EXPECT_STREQ(buffer, serial.c_str());
    EXPECT_LT(tw_scsi_get_guid((folder.path + "/missing").c_str(), buffer, sizeof(buffer)), 0);
    EXPECT_STREQ(buffer, serial.c_str());
}

} // namespace
