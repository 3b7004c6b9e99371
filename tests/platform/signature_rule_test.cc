// Which disks may be given a signature: real images on real loop devices, never written to.
#include "tests/platform/host.h"

#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <functional>

namespace {

struct image_case {
    const char *name;
    uint32_t state;
    uint32_t table;               // as get_part_type tells it
    const char *command = "true"; // makes the content of $IMG
    const char *tool = "true";    // without it the case is skipped
    bool read_only = false;
};

void PrintTo(const image_case &row, std::ostream *out)
{
    *out << row.name;
}

#define BYTES_AT(bytes, offset) "printf '" bytes "' | dd of=$IMG bs=1 seek=" offset " conv=notrunc"
#define LABEL(type, rest) "printf 'label: " type "\\n" rest "' | sfdisk --force $IMG"
#define MBR LABEL("dos", ",4M\\n,4M\\n")
#define MAC                                                                                                  \
    BYTES_AT("ER\\002\\000", "0")                                                                            \
    " && " BYTES_AT("PM\\000\\000\\000\\000\\000\\001\\000\\000\\000\\001\\000\\000\\000\\077", "512")
#define LUKS                                                                                                 \
    "truncate -s 32M $IMG && echo secret | "                                                                 \
    "cryptsetup luksFormat -q --type luks2 --pbkdf pbkdf2 --pbkdf-force-iterations 1000 $IMG"
// The tool wants a block device; nothing of this machine's own is to be asked, kept or told.
#define LVM                                                                                                  \
    "L=$(losetup -f --show $IMG) && pvcreate -qq --config 'activation{udev_sync=0 udev_rules=0} "            \
    "devices{obtain_device_list_from_udev=0 use_devicesfile=0}' $L; r=$?; losetup -d $L; [ $r = 0 ]"

const image_case CASES[] = {
    {"Blank", 1, 0},
    {"BlankWithSignature", 1, 0, BYTES_AT("\\252\\273\\314\\335", "440")},
    {"ByteBeforeTheSignature", 0, 0, BYTES_AT("\\001", "439")},
    {"ByteBehindTheSignature", 0, 0, BYTES_AT("\\001", "444")},
    {"Mbr", 1, 1, MBR},
    {"MbrWithoutSignature", 1, 1, MBR " && " BYTES_AT("\\000\\000\\000\\000", "440")},
    {"MbrWithoutItsMark", 0, 0, MBR " && " BYTES_AT("\\000\\000", "510")},
    {"Gpt", 1, 2, LABEL("gpt", ",4M\\n,4M,S\\n")},
    {"GptWithoutPrimaryHeader", 1, 2, LABEL("gpt", ",4M\\n") " && " BYTES_AT("XXXXXXXX", "512")},
    {"ProtectiveMbrAlone", 0, 0, LABEL("gpt", ",4M\\n") " && truncate -s 512 $IMG && truncate -s 16M $IMG"},
    {"SunLabel", 0, 0, LABEL("sun", ",4M\\n")},
    {"MacLabel", 0, 0, MAC},
    {"MbrBesideMacLabel", 0, 1, MBR " && " MAC},
    {"Ext4", 0, 0, "mkfs.ext4 -F $IMG"},
    {"Ext4UnderMbr", 0, 1, "mkfs.ext4 -F $IMG && " MBR},
    {"Xfs", 0, 0, "truncate -s 310M $IMG && mkfs.xfs -f $IMG", "mkfs.xfs"},
    {"Vfat", 0, 0, "mkfs.vfat $IMG", "mkfs.vfat"},
    {"Btrfs", 0, 0, "truncate -s 128M $IMG && mkfs.btrfs -f $IMG", "mkfs.btrfs"},
    {"Swap", 0, 0, "mkswap $IMG"},
    {"Luks", 0, 0, LUKS, "cryptsetup"},
    {"LvmVolume", 0, 0, LVM, "pvcreate"},
    {"LvmVolumeWithBadChecksum", 0, 0,
     BYTES_AT(
         "LABELONE\\001\\000\\000\\000\\000\\000\\000\\000\\001\\002\\003\\004\\040\\000\\000\\000LVM2 001",
         "512")},
    {"RaidMemberAtTheEnd", 0, 0,
     BYTES_AT("\\374\\116\\053\\251\\000\\000\\000\\000\\132\\000\\000\\000", "16711680")},
    {"RaidMemberAtTheBeginning", 0, 0,
     BYTES_AT("\\374\\116\\053\\251\\001\\000\\000\\000", "4096") " && " BYTES_AT("\\010", "4240")},
    {"Iso", 0, 0, BYTES_AT("\\001CD001\\001", "32768")},
    {"ReadOnlyMbr", 0, 1, MBR, "true", true},
    {"FloppySizedBlank", 0, 0, "truncate -s 1440K $IMG"},
    {"BlankJustAboveFloppySize", 1, 0, "truncate -s 1441K $IMG"},
};

class BlankDisk : public disk_image {
protected:
    // The answer must not depend on the flag: the daemon asks with both.
    void expect_state(uint32_t state, const std::string &circumstance = "")
    {
        for (const int flag : {0, 1}) {
            const disk_list disks(flag);
            ASSERT_NE(disks.find(name), nullptr) << circumstance;
            EXPECT_EQ(disks.find(name)->state, state) << circumstance << ", flag " << flag;
        }
    }
};

struct DiskImage : BlankDisk, testing::WithParamInterface<image_case> {};

TEST_P(DiskImage, GetsItsStateAndIsNotWrittenTo)
{
    if (!run(std::string("command -v ") + GetParam().tool))
        GTEST_SKIP() << GetParam().tool << " is not installed";
    ASSERT_NO_FATAL_FAILURE(attach(GetParam().command, GetParam().read_only));
    const auto digest = [this] { return std::hash<std::string>()(read_file(image)); };
    const size_t before = digest();
    expect_state(GetParam().state);
    EXPECT_EQ(get_part_type(path.c_str()), GetParam().table);
    EXPECT_EQ(disk_list(0).find(name)->sectors * 512, std::filesystem::file_size(image));
    disk.reset();
    EXPECT_EQ(digest(), before);
}

INSTANTIATE_TEST_SUITE_P(Content, DiskImage, testing::ValuesIn(CASES),
                         [](const auto &row) { return std::string(row.param.name); });

TEST_F(BlankDisk, HeldExclusivelyIsLeftAlone)
{
    ASSERT_NO_FATAL_FAILURE(attach("true"));
    const int holder = open(path.c_str(), O_RDONLY | O_EXCL | O_CLOEXEC);
    ASSERT_GE(holder, 0);
    expect_state(0);
    close(holder);
    expect_state(1);
}

TEST_F(BlankDisk, UnreadableIsLeftAlone)
{
    ASSERT_NO_FATAL_FAILURE(attach("true"));
    std::filesystem::resize_file(image, 4096);
    expect_state(0);
}

// Facts that only the kernel tells, on a /sys of our own that speaks of a real blank device.
TEST_F(BlankDisk, IsJudgedByWhatSysfsTellsOfIt)
{
    ASSERT_NO_FATAL_FAILURE(attach("true"));
    const std::string number = read_file("/sys/block/" + name + "/dev");
    const std::pair<const char *, uint32_t> facts[] = {
        {"queue/rotational=1", 1}, {"ro=1", 0},          {"ro=", 0},
        {"removable=1", 0},        {"holders/dm-0=", 0}, {"slaves/loop1=", 1},
        {"dm/name=x", 0},          {"md/level=", 0},     {"size=0", 0},
        {"dev=7:1048575", 0},      {"p/partition=1", 0},
    };
    for (const auto &[fact, state] : facts) {
        const fake_folder sys("/sys");
        std::filesystem::create_directories("/sys/block/" + name + "/holders");
        write_facts("/sys/block/" + name, "ro=0 removable=0 size=32768 loop/backing_file=/image p/start=8 "
                                          "p/size=8 p/dev=259:0 dev=" +
                                              number + ' ' + fact);
        expect_state(state, fact);
    }
}

} // namespace
