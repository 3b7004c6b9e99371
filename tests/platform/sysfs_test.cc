// The libraries on a host of our making: a /sys and a /run of the test's own.
#include "platform/include/kavdev.h"
#include "platform/include/tw.h"
#include "tests/platform/host.h"
#include "tests/support/captured_log.h"

#include <sys/stat.h>

#include <filesystem>

namespace {

using namespace std::string_literals;

class MadeHost : public private_mounts {
protected:
    void SetUp() override
    {
        private_mounts::SetUp();
        if (IsSkipped())
            return;
        sys.emplace("/sys");
        run_folder.emplace("/run");
        ASSERT_FALSE(HasFailure()) << "anything else would be done to the host itself";
        take_log();
    }

    static void expect_log(const std::string &text)
    {
        const std::string log = take_log();
        EXPECT_NE(log.find(text), std::string::npos) << text << " is not in: " << log;
    }

    std::optional<fake_folder> sys;
    std::optional<fake_folder> run_folder;
};

TEST_F(MadeHost, OddAndVanishingDevicesDoNotSpoilTheList)
{
    EXPECT_EQ(disk_list(1).result, -1) << "no folder of disks at all";
    expect_log("/sys/block");
    write_facts(
        "/sys/block",
        "sdx/size=4096 sdx/dev=8:0 sdx/ro=0 sdx/removable=0 sdx/sdx1/partition=one "
        "cciss!c0d0/size=18446744073709551615 cciss!c0d0/dev=8:0 cciss!c0d0/device/vendor= "
        "loop8/size=1 loop8/dev=7:8 loop8/loop/backing_file=/x/m.qelcd-snapshots/2031-05-01T00-00-00Z-sda "
        "dm-1/size=1 dm-1/dev=253:1 dm-1/dm/uuid=LVM-a dm-1/dm/name=v-m.qelcd--2031--05--01T00--00--00Z--sda "
        "ram0/size=1 ram0/dev=1:0 zram1/size=1 zram1/dev=251:1 loop7/size=1 loop7/dev=7:7 "
        "hidden/size=1 hidden/dev=8:0 hidden/hidden=1 garbage/size=12apples garbage/dev=8:0 "
        "overflow/size=18446744073709551616 overflow/dev=8:0 numberless/size=1 numberless/dev=8");
    write_file("/sys/block/sdx/device/vendor", "ATA     \n");
    write_file("/sys/block/sdx/device/model", std::string(200000, 'm') + "\n");
    std::filesystem::create_directory("/sys/block/vanished");
    std::filesystem::create_directory("/sys/block/sdx/holders");
    mkfifo("/sys/block/fifo", 0600);

    const disk_list disks(1);
    ASSERT_EQ(disks.result, 0);
    const kavdisk_dev *plain = disks.find("sdx");
    const kavdisk_dev *slash = disks.find("cciss!c0d0");
    ASSERT_TRUE(plain && slash);
    EXPECT_EQ(slash->link.next, &plain->link) << "just these two, sorted";
    EXPECT_EQ(plain->link.next, &disks.head);
    EXPECT_STREQ(plain->vendor, "ATA     ");
    EXPECT_EQ(std::string(plain->model).substr(0, 1000), std::string(1000, 'm'));
    EXPECT_TRUE(kav_list_empty(&plain->parts));
    EXPECT_STREQ(slash->path, "/dev/cciss/c0d0");
    EXPECT_STREQ(slash->vendor, "");
    EXPECT_STREQ(slash->model, nullptr);
    EXPECT_EQ(slash->sectors, UINT64_MAX);
    EXPECT_EQ(plain->state, 0U) << "it has no node that could be read";
    expect_log("garbage");
}

TEST_F(MadeHost, VolumeOfTheStorageSystemIsReportedWhateverItHolds)
{
    write_facts("/sys/block",
                "a/device/vendor=QRZ a/device/model=any a/size=8 a/dev=8:0 "
                "b/device/vendor=any b/device/model=KAVSolution b/size=8 b/dev=8:0 "
                "c/device/vendor=QRZ c/device/model=KAVSolution c/size=0 c/dev=8:0 "
                "d/device/vendor=QRZ d/size=8 d/dev=8:0 " // the daemon would take it for a disk, and sign it
                "e/device/vendor=QRZX e/device/model=KAVSolution2 e/size=8 e/dev=8:0");
    const disk_list disks(0);
    std::string states;
    for (const char *name : {"a", "b", "c", "d", "e"}) {
        ASSERT_TRUE(disks.find(name)) << name;
        states += std::to_string(disks.find(name)->state);
    }
    EXPECT_EQ(states, "11000");
}

TEST_F(MadeHost, RescanWritesToEveryScsiHostAndReportsTheOneThatRefuses)
{
    EXPECT_EQ(kavdisk_rescan_dev(0), 1) << "no SCSI at all";
    write_facts("/sys", "class/scsi_host/host0/scan= class/scsi_host/host2/scan= block/sda/device/rescan= "
                        "block/sdb/device/rescan= block/sdb/device/state=blocked");
    EXPECT_EQ(kavdisk_rescan_dev(0), 1);
    EXPECT_EQ(read_file("/sys/block/sda/device/rescan"), "1") << "it may have been resized";
    EXPECT_EQ(read_file("/sys/block/sdb/device/rescan"), "\n") << "it would only be waited for";
    EXPECT_EQ(take_log(), "");
    std::filesystem::create_directories("/sys/class/scsi_host/host1/scan");
    write_facts("/sys/class/scsi_host", "host0/scan= host2/scan=");
    EXPECT_EQ(kavdisk_rescan_dev(0), 0);
    expect_log("host1/scan");
    for (const std::string host : {"host0", "host2"})
        EXPECT_EQ(read_file("/sys/class/scsi_host/" + host + "/scan"), "- - -") << host;
}

TEST_F(MadeHost, ProbeWithoutUdevGoesThroughSysfs)
{
    write_facts("/sys", "block/sda/device/rescan= block/vda/device/model= class/block/sda1/uevent=");
    EXPECT_EQ(kav_device_probe_all(1), 0);
    EXPECT_EQ(read_file("/sys/block/sda/device/rescan"), "1");
    EXPECT_FALSE(std::filesystem::exists("/sys/block/vda/device/rescan"));
    EXPECT_EQ(read_file("/sys/class/block/sda1/uevent"), "change");
    EXPECT_EQ(take_log(), "");
    std::filesystem::create_directories("/sys/block/aaa/device/rescan");
    EXPECT_LT(kav_device_probe_all(1), 0);
    expect_log("/sys/block/aaa/device/rescan");
}

TEST_F(MadeHost, ProbeWithUdevTriggersAndSettles)
{
    const fake_folder tools("/usr/local/sbin");
    std::filesystem::create_directory("/sys/block");
    write_file("/run/udev/control", "");
    const std::string tool = "/usr/local/sbin/udevadm", note = "#!/bin/sh\necho \"$@\" >>/run/calls\nexit ";
    const struct {
        std::string program;
        const char *calls, *log;
    } cases[] = {
        {note + "0", "trigger --subsystem-match=block --action=change\nsettle --timeout=10\n", ""},
        {note + "1", "trigger --subsystem-match=block --action=change\n", "udevadm trigger failed"},
        {"no program", "", "Cannot run udevadm trigger"},
    };
    for (const auto &row : cases) {
        write_file("/run/calls", "");
        write_file(tool, row.program);
        chmod(tool.c_str(), 0755);
        EXPECT_EQ(kav_device_probe_all(1) < 0, *row.log != 0);
        EXPECT_EQ(read_file("/run/calls"), row.calls);
        expect_log(row.log);
    }
}

// /dev/null stands in for a disk: only its name counts here.
TEST_F(MadeHost, ScsiGuidComesFromTheSerialElseFromTheDesignators)
{
    const std::string serial = "0a1b2c3d-1111-2222-3333-444455556666";
    std::filesystem::create_symlink("/dev/null", "/run/by-id");
    char buffer[64] = "before";
    EXPECT_LT(tw_scsi_get_guid("/dev/null", buffer, sizeof(buffer)), 0);
    EXPECT_LT(tw_scsi_get_guid("/dev/missing", buffer, sizeof(buffer)), 0);

    write_file("/sys/block/null/device/vpd_pg83", "\0\x83\0\x0c\1\3\0\x08\x50\1\x43\x80\0\0\0\1"s);
    EXPECT_LT(tw_scsi_get_guid("/dev/null", buffer, 16), 0) << "one byte short";
    EXPECT_STREQ(buffer, "before");
    EXPECT_EQ(tw_scsi_get_guid("/dev/null", buffer, 17), 0);
    EXPECT_STREQ(buffer, "5001438000000001");

    write_file("/sys/block/null/device/vpd_pg80", "\0\x80\0\x28{"s + serial + "}  ");
    EXPECT_EQ(tw_scsi_get_guid("/run/by-id", buffer, sizeof(buffer)), 0);
    EXPECT_STREQ(buffer, serial.c_str());
}

} // namespace
