// Partitions as the kernel, the table and the file systems tell of them, on a real loop device.
#include "tests/platform/host.h"

#include <sys/statvfs.h>

#include <filesystem>

namespace {

constexpr uint64_t MIB = 1024 * 1024;

class PartitionedDisk : public disk_image {
protected:
    // Skips the test where loop devices cannot have partitions. Not every kernel reads their tables by
    // itself.
    void attach_partitioned(const std::string &table)
    {
        ASSERT_NO_FATAL_FAILURE(attach("truncate -s 64M $IMG && printf '" + table + "' | sfdisk $IMG"));
        run("partx -a $DEV");
        if (!std::filesystem::exists(path + "p1"))
            GTEST_SKIP() << "no partitions on loop devices here";
    }

    const kavdisk_part *part(const disk_list &disks, const std::string &suffix) const
    {
        return find_record<kavdisk_part>(disks.find(name)->parts, name + suffix);
    }
};

TEST_F(PartitionedDisk, GptPartitionsAreListedWithGuidFileSystemAndUsage)
{
    attach_partitioned("label: gpt\nstart=2048, size=40960, uuid=11111111-2222-3333-4444-ABCDEFABCDEF\n"
                       "start=43008, size=20480\nstart=63488, size=40960\n");
    if (HasFatalFailure() || IsSkipped())
        return;
    const std::string point = "/mnt/mount point";
    ASSERT_TRUE(run("mkfs.ext4 ${DEV}p1 && mkswap ${DEV}p2 && "
                    "mkdir '/mnt/mount point' && mount ${DEV}p1 '/mnt/mount point'"));
    write_file(point + "/data", std::string(3 * MIB, 'x'));
    const disk_list before(1);
    EXPECT_EQ(before.find(name)->state, 1U);
    const kavdisk_part *first = part(before, "p1"), *second = part(before, "p2"), *third = part(before, "p3");
    ASSERT_TRUE(first && second && third);
    EXPECT_STREQ(first->guid, "11111111-2222-3333-4444-abcdefabcdef");
    EXPECT_STREQ(first->fs, "ext4");
    EXPECT_EQ(first->size, 20 * MIB);
    struct statvfs usage {};
    ASSERT_EQ(statvfs(point.c_str(), &usage), 0);
    EXPECT_EQ(first->used, (usage.f_blocks - usage.f_bfree) * usage.f_frsize);
    EXPECT_GE(first->used, 3 * MIB);
    EXPECT_STREQ(second->fs, "swap");
    EXPECT_EQ(second->used, 0U);
    EXPECT_STREQ(third->fs, nullptr);
    EXPECT_EQ(part(disk_list(0), "p1"), nullptr) << "partitions were not asked for";

    // The mount keeps the whole disk's page cache alive, in which this third partition is still empty.
    ASSERT_TRUE(run("mkfs.ext4 -F ${DEV}p3 && mount -t tmpfs none '/mnt/mount point'"));
    write_file(point + "/data", std::string(MIB, 'x'));
    const disk_list after(1);
    EXPECT_STREQ(part(after, "p3")->fs, "ext4");
    EXPECT_EQ(part(after, "p1")->used, 0U) << "something is mounted over it";
    EXPECT_TRUE(run("umount '/mnt/mount point' && umount '/mnt/mount point'"));
}

TEST_F(PartitionedDisk, MbrPartitionsHaveGuidsOfDiskSignatureAndNumber)
{
    attach_partitioned("label: dos\nlabel-id: 0x1a2b3c4d\n,4M\n,16M,E\n,4M,L\n");
    if (HasFatalFailure() || IsSkipped())
        return;
    const disk_list disks(1);
    ASSERT_TRUE(part(disks, "p1") && part(disks, "p3"));
    EXPECT_STREQ(part(disks, "p1")->guid, "1a2b3c4d-01");
    EXPECT_STREQ(part(disks, "p3")->guid, "1a2b3c4d-03");
}

} // namespace
