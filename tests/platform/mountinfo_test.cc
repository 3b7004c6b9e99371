#include "platform/linux/host/mountinfo.h"

#include <gtest/gtest.h>
#include <sys/sysmacros.h>

namespace {

TEST(Mountinfo, WellFormedLinesAreReadAndOthersPassedOver)
{
    const struct {
        const char *line, *point; // null: passed over
    } cases[] = {
        {"36 35 8:17 /sub /mnt/a\\040b\\134c rw - ext4 /dev/sdb1 rw", "/mnt/a b\\c"},
        {"36 35 8:17 / /\\77\\0 rw shared:1 master:2 propagate_from:3 - ext4 /dev/sdb1 rw", "/\\77\\0"},
        {"   ", nullptr},
        {"36 35 8:17 / /mnt rw", nullptr},
        {"36 35 8:17 / /mnt rw shared:1 ext4 /dev/sdb1 rw", nullptr},
        {"36 35 8:17 / /mnt rw shared:1 shared:2 - ext4", nullptr},
        {"x 35 8:17 / /mnt rw - ext4 /dev/sdb1 rw", nullptr},
        {"36 35 817 / /mnt rw - ext4 /dev/sdb1 rw", nullptr},
        {"36 35 8:99999999999999999999 / /mnt rw - ext4 /dev/sdb1 rw", nullptr},
    };
    for (const auto &row : cases) {
        const auto mounts =
            parse_mountinfo(std::string(row.line) + "\n40 35 0:21 / /last rw - tmpfs none rw");
        ASSERT_EQ(mounts.size(), row.point ? 2U : 1U) << row.line;
        EXPECT_EQ(mounts.back().point, "/last") << row.line;
        if (!row.point)
            continue;
        EXPECT_EQ(mounts[0].id, 36U);
        EXPECT_EQ(mounts[0].device, makedev(8, 17));
        EXPECT_EQ(mounts[0].point, row.point);
        EXPECT_EQ(mounts[0].source, "/dev/sdb1");
    }
}

} // namespace
