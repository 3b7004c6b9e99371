// Partitions as the kernel, the table and the file systems tell of them, on a real loop device.
#include "tests/platform/host.h"

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <filesystem>
#include <optional>

namespace {

constexpr uint64_t MIB = 1024 * 1024;

std::string text(const char *value)
{
    return value ? value : "(null)";
}

class PartitionedDisk : public testing::Test {
protected:
    void SetUp() override
    {
        std::string reason;
        if (!enter_private_mounts(reason) || access("/dev/loop-control", R_OK | W_OK) != 0)
            GTEST_SKIP() << "no loop devices here: " << reason;
        write_file(image, "");
        std::filesystem::resize_file(image, 64 * MIB);
    }

    // Not every kernel reads partition tables of loop devices by itself.
    void attach()
    {
        loop.emplace(image, false);
        ASSERT_FALSE(loop->path.empty()) << "no loop device could be attached";
        run("partx -a \"$DEV\"", {{"DEV", loop->path}});
        name = loop->path.substr(5);
        if (!std::filesystem::exists(loop->path + "p1"))
            GTEST_SKIP() << "no partitions on loop devices here";
    }

    temp_folder folder;
    const std::string image = folder.path + "/image";
    std::optional<loop_device> loop;
    std::string name;
};

TEST_F(PartitionedDisk, GptPartitionsAreListedWithGuidFileSystemAndUsage)
{
    ASSERT_TRUE(run("printf 'label: gpt\n"
                    "start=2048, size=40960, uuid=11111111-2222-3333-4444-ABCDEFABCDEF\n"
                    "start=43008, size=20480\nstart=63488, size=40960\n' | sfdisk \"$IMG\" && "
                    "truncate -s 20M \"$IMG.1\" && mkfs.ext4 -F \"$IMG.1\" && "
                    "truncate -s 10M \"$IMG.2\" && mkswap \"$IMG.2\" && "
                    "dd if=\"$IMG.1\" of=\"$IMG\" bs=1M seek=1 conv=notrunc && "
                    "dd if=\"$IMG.2\" of=\"$IMG\" bs=1M seek=21 conv=notrunc",
                    {{"IMG", image}}));
    attach();
    if (name.empty() || IsSkipped())
        return;
    const std::string point = folder.path + "/mount point";
    std::filesystem::create_directory(point);
    ASSERT_EQ(mount((loop->path + "p1").c_str(), point.c_str(), "ext4", 0, nullptr), 0);
    write_file(point + "/data", std::string(3 * MIB, 'x'));
    {
        const disk_list disks(1);
        const kavdisk_dev *dev = disks.find(loop->path);
        ASSERT_NE(dev, nullptr);
        EXPECT_EQ(dev->state, 1U);
        const kavdisk_part *first = find_part(dev, name + "p1");
        const kavdisk_part *second = find_part(dev, name + "p2");
        const kavdisk_part *third = find_part(dev, name + "p3");
        ASSERT_TRUE(first && second && third);
        EXPECT_EQ(text(first->guid), "11111111-2222-3333-4444-abcdefabcdef");
        EXPECT_EQ(text(first->fs), "ext4");
        EXPECT_EQ(first->size, 20 * MIB);
        struct statvfs usage {};
        ASSERT_EQ(statvfs(point.c_str(), &usage), 0);
        EXPECT_EQ(first->used, (usage.f_blocks - usage.f_bfree) * usage.f_frsize);
        EXPECT_GE(first->used, 3 * MIB);
        EXPECT_EQ(text(second->fs), "swap");
        EXPECT_EQ(second->used, 0U);
        EXPECT_EQ(third->fs, nullptr);
        EXPECT_TRUE(kav_list_empty(&disk_list(0).find(loop->path)->parts));
    }
    // The mount keeps the whole disk's page cache alive, in which this third partition is still empty.
    ASSERT_TRUE(run("mkfs.ext4 -F \"$DEV\"p3", {{"DEV", loop->path}}));
    {
        const disk_list disks(1);
        const kavdisk_part *third = find_part(disks.find(loop->path), name + "p3");
        ASSERT_NE(third, nullptr);
        EXPECT_EQ(text(third->fs), "ext4");
    }
    ASSERT_EQ(mount("none", point.c_str(), "tmpfs", 0, nullptr), 0);
    write_file(point + "/data", std::string(MIB, 'x'));
    EXPECT_EQ(find_part(disk_list(1).find(loop->path), name + "p1")->used, 0U)
        << "something is mounted over it";
    umount(point.c_str());
    EXPECT_EQ(umount(point.c_str()), 0);
}

TEST_F(PartitionedDisk, MbrPartitionsHaveGuidsOfDiskSignatureAndNumber)
{
    ASSERT_TRUE(run("printf 'label: dos\nlabel-id: 0x1a2b3c4d\n,4M\n,16M,E\n,4M,L\n' | sfdisk \"$IMG\"",
                    {{"IMG", image}}));
    attach();
    if (name.empty() || IsSkipped())
        return;
    const disk_list disks(1);
    const kavdisk_dev *dev = disks.find(loop->path);
    ASSERT_NE(dev, nullptr);
    for (const auto &[suffix, guid] : {std::pair("p1", "1a2b3c4d-01"), std::pair("p3", "1a2b3c4d-03")}) {
        const kavdisk_part *part = find_part(dev, name + suffix);
        ASSERT_NE(part, nullptr) << suffix;
        EXPECT_EQ(text(part->guid), guid);
    }
}

} // namespace
