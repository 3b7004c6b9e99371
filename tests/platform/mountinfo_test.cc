#include "platform/linux/mountinfo.h"

#include <gtest/gtest.h>
#include <sys/sysmacros.h>

namespace {

TEST(Mountinfo, LineIsReadWithAnyNumberOfOptionalFields)
{
    for (const std::string optional : {"", "shared:1 ", "shared:1 master:2 propagate_from:3 "}) {
        const auto mounts = parse_mountinfo("36 35 8:17 /sub /mnt/a\\040b\\134c rw,noatime " + optional +
                                            "- ext4 /dev/sdb1 rw\n");
        ASSERT_EQ(mounts.size(), 1U) << optional;
        EXPECT_EQ(mounts[0].id, 36U);
        EXPECT_EQ(mounts[0].device, makedev(8, 17));
        EXPECT_EQ(mounts[0].point, "/mnt/a b\\c");
        EXPECT_EQ(mounts[0].source, "/dev/sdb1");
    }
}

TEST(Mountinfo, MalformedLinesArePassedOver)
{
    const char *const malformed[] = {
        "",
        "   ",
        "36 35 8:17 / /mnt rw",
        "36 35 8:17 / /mnt rw shared:1 ext4 /dev/sdb1 rw",
        "36 35 8:17 / /mnt rw shared:1 shared:2 - ext4",
        "x 35 8:17 / /mnt rw - ext4 /dev/sdb1 rw",
        "36 35 817 / /mnt rw - ext4 /dev/sdb1 rw",
        "36 35 8:99999999999999999999 / /mnt rw - ext4 /dev/sdb1 rw",
    };
    for (const std::string line : malformed) {
        const auto mounts = parse_mountinfo(line + "\n40 35 0:21 / /\\77\\0 rw - tmpfs none rw");
        ASSERT_EQ(mounts.size(), 1U) << line;
        EXPECT_EQ(mounts[0].point, "/\\77\\0") << "no escapes: too few digits";
    }
}

} // namespace
