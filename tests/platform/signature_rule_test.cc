// Which disks may be given a signature: real images on real loop devices, never written to.
#include "tests/platform/host.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <functional>
#include <optional>
#include <thread>

namespace {

constexpr int DEFAULT_KIB = 16 * 1024;

struct image_case {
    const char *name;
    uint32_t state;
    uint32_t table;               // as get_part_type tells it
    const char *command = "true"; // makes the content of $IMG
    int kib = DEFAULT_KIB;
    const char *tool = "true"; // without it the case is skipped
    bool read_only = false;
};

void PrintTo(const image_case &row, std::ostream *out)
{
    *out << row.name;
}

#define BYTES_AT(bytes, offset) "printf '" bytes "' | dd of=\"$IMG\" bs=1 seek=" offset " conv=notrunc"
#define LABEL(type, rest) "printf 'label: " type "\\n" rest "' | sfdisk --force \"$IMG\""
#define MBR LABEL("dos", ",4M\\n,4M\\n")
#define MAC                                                                                                  \
    BYTES_AT("ER\\002\\000", "0")                                                                            \
    " && " BYTES_AT("PM\\000\\000\\000\\000\\000\\001\\000\\000\\000\\001\\000\\000\\000\\077", "512")
#define LUKS(type)                                                                                           \
    "echo secret | cryptsetup luksFormat -q --type " type                                                    \
    " --pbkdf pbkdf2 --pbkdf-force-iterations 1000 \"$IMG\""

const image_case CASES[] = {
    {"Blank", 1, 0},
    {"BlankWithSignature", 1, 0, BYTES_AT("\\252\\273\\314\\335", "440")},
    {"ByteBeforeTheSignature", 0, 0, BYTES_AT("\\001", "439")},
    {"ByteBehindTheSignature", 0, 0, BYTES_AT("\\001", "444")},
    {"UnknownData", 0, 0, "dd if=/dev/urandom of=\"$IMG\" bs=440 count=1 conv=notrunc"},
    {"Mbr", 1, 1, MBR},
    {"MbrWithoutSignature", 1, 1, MBR " && " BYTES_AT("\\000\\000\\000\\000", "440")},
    {"MbrWithoutItsMark", 0, 0, MBR " && " BYTES_AT("\\000\\000", "510")},
    {"Gpt", 1, 2, LABEL("gpt", ",4M\\n,4M,S\\n")},
    {"GptWithoutPrimaryHeader", 1, 2, LABEL("gpt", ",4M\\n") " && " BYTES_AT("XXXXXXXX", "512")},
    {"ProtectiveMbrAlone", 0, 0,
     LABEL("gpt", ",4M\\n") " && dd if=\"$IMG\" of=\"$IMG.pmbr\" bs=512 count=1 && truncate -s 0 \"$IMG\" && "
                            "cat \"$IMG.pmbr\" >\"$IMG\" && truncate -s 16M \"$IMG\""},
    {"SunLabel", 0, 0, LABEL("sun", ",4M\\n")},
    {"SgiLabel", 0, 0, LABEL("sgi", ",4M\\n")},
    {"MacLabel", 0, 0, MAC},
    {"MbrBesideMacLabel", 0, 1, MBR " && " MAC},
    {"Ext4", 0, 0, "mkfs.ext4 -F \"$IMG\""},
    {"Ext4UnderMbr", 0, 1, "mkfs.ext4 -F \"$IMG\" && " MBR},
    {"Xfs", 0, 0, "mkfs.xfs -f \"$IMG\"", 310 * 1024, "mkfs.xfs"},
    {"Vfat", 0, 0, "mkfs.vfat \"$IMG\"", DEFAULT_KIB, "mkfs.vfat"},
    {"Btrfs", 0, 0, "mkfs.btrfs -f \"$IMG\"", 128 * 1024, "mkfs.btrfs"},
    {"Swap", 0, 0, "mkswap \"$IMG\""},
    {"Luks1", 0, 0, LUKS("luks1"), DEFAULT_KIB, "cryptsetup"},
    {"Luks2", 0, 0, LUKS("luks2"), 32 * 1024, "cryptsetup"},
    {"LvmVolumeWithBadChecksum", 0, 0,
     BYTES_AT(
         "LABELONE\\001\\000\\000\\000\\000\\000\\000\\000\\001\\002\\003\\004\\040\\000\\000\\000LVM2 001",
         "512")},
    {"RaidMemberAtTheEnd", 0, 0,
     BYTES_AT("\\374\\116\\053\\251\\000\\000\\000\\000\\132\\000\\000\\000", "16711680")},
    {"ReadOnlyMbr", 0, 1, MBR, DEFAULT_KIB, "true", true},
    {"FloppySizedBlank", 0, 0, "true", 1440},
    {"BlankJustAboveFloppySize", 1, 0, "true", 1441},
};

class DiskImage : public testing::TestWithParam<image_case> {
protected:
    void SetUp() override
    {
        std::string reason;
        if (!enter_private_mounts(reason) || access("/dev/loop-control", R_OK | W_OK) != 0)
            GTEST_SKIP() << "no loop devices here: " << reason;
    }

    void attach(const image_case &with)
    {
        if (!run(std::string("command -v ") + with.tool))
            GTEST_SKIP() << with.tool << " is not installed";
        write_file(image, "");
        std::filesystem::resize_file(image, uint64_t{1024} * static_cast<uint64_t>(with.kib));
        ASSERT_TRUE(run(with.command, {{"IMG", image}})) << with.command;
        loop.emplace(image, with.read_only);
        ASSERT_FALSE(loop->path.empty()) << "no loop device could be attached";
    }

    // The answer must not depend on the flag: the daemon asks with both.
    void expect_state(uint32_t state)
    {
        for (const int flag : {0, 1}) {
            const disk_list disks(flag);
            ASSERT_EQ(disks.result, 0);
            const kavdisk_dev *dev = disks.find(loop->path);
            ASSERT_NE(dev, nullptr);
            EXPECT_EQ(dev->state, state) << "flag " << flag;
            EXPECT_EQ("/dev/" + std::string(dev->name), loop->path);
            EXPECT_EQ(dev->sectors * 512, std::filesystem::file_size(image));
        }
    }

    temp_folder folder;
    const std::string image = folder.path + "/image";
    std::optional<loop_device> loop;
};

TEST_P(DiskImage, GetsItsStateAndIsNotWrittenTo)
{
    attach(GetParam());
    if (!loop)
        return;
    const auto digest = [this] { return std::hash<std::string>()(read_file(image)); };
    const size_t before = digest();
    expect_state(GetParam().state);
    EXPECT_EQ(get_part_type(loop->path.c_str()), GetParam().table);
    loop.reset();
    EXPECT_EQ(digest(), before);
}

INSTANTIATE_TEST_SUITE_P(Content, DiskImage, testing::ValuesIn(CASES),
                         [](const auto &row) { return std::string(row.param.name); });

using BlankDisk = DiskImage;

TEST_F(BlankDisk, HeldExclusivelyIsLeftAlone)
{
    attach({"", 0, 0});
    const int holder = open(loop->path.c_str(), O_RDONLY | O_EXCL | O_CLOEXEC);
    ASSERT_GE(holder, 0);
    expect_state(0);
    close(holder);
    expect_state(1);
}

TEST_F(BlankDisk, IsUsableForAllWhoAskAtTheSameTime)
{
    attach({"", 0, 0});
    std::atomic<int> refused = 0;
    const auto ask = [&] {
        for (int round = 0; round < 250; round++) {
            const disk_list disks(0);
            const kavdisk_dev *dev = disks.find(loop->path);
            refused += !dev || dev->state != 1;
        }
    };
    std::thread other(ask);
    ask();
    other.join();
    EXPECT_EQ(refused, 0);
}

TEST_F(BlankDisk, UnreadableIsLeftAlone)
{
    attach({"", 0, 0});
    std::filesystem::resize_file(image, 4096);
    const disk_list disks(0);
    ASSERT_NE(disks.find(loop->path), nullptr);
    EXPECT_EQ(disks.find(loop->path)->state, 0U);
}

// Facts that only the kernel tells, on a /sys of our own that speaks of a real blank device.
TEST_F(BlankDisk, IsJudgedByWhatSysfsTellsOfIt)
{
    attach({"", 0, 0});
    struct stat node {};
    ASSERT_EQ(stat(loop->path.c_str(), &node), 0);
    const std::string number = "7:" + std::to_string(minor(node.st_rdev));
    const struct {
        const char *file, *text;
        uint32_t state;
    } facts[] = {
        {"queue/rotational", "1", 1}, {"ro", "1", 0},           {"ro", "", 0},
        {"removable", "1", 0},        {"holders/dm-0", "", 0},  {"slaves/loop1", "", 1},
        {"dm/name", "x", 0},          {"md/level", "raid1", 0}, {"size", "0", 0},
        {"dev", "7:1048575", 0},      {"p/partition", "1", 0},
    };
    for (const auto &fact : facts) {
        const covered_folder sys("/sys");
        const std::string disk = "/sys/block/" + loop->path.substr(5) + "/";
        std::filesystem::create_directories(disk + "holders");
        for (const auto &[file, text] : {std::pair("dev", number.c_str()),
                                         {"ro", "0"},
                                         {"removable", "0"},
                                         {"size", "32768"},
                                         {"loop/backing_file", "/image"},
                                         {"p/start", "8"},
                                         {"p/size", "8"},
                                         {"p/dev", "259:0"}})
            write_file(disk + file, text);
        write_file(disk + fact.file, fact.text);
        const disk_list disks(0);
        ASSERT_NE(disks.find(loop->path), nullptr) << fact.file;
        EXPECT_EQ(disks.find(loop->path)->state, fact.state) << fact.file << ": " << fact.text;
    }
}

} // namespace
