// The embedded disk library when memory runs out: all disks or none, and none that looks blank and is not.
#include "platform/include/kavdisk.h"
#include "tests/platform/host.h"
#include "tests/support/shortage.h"

#include <string>

namespace {
std::string described(const kav_list &list, const std::string &name)
{
    const kavdisk_dev *disk = find_record<kavdisk_dev>(list, name);
    if (!disk)
        return "none";
    std::string text = "state " + std::to_string(disk->state);
    for (const kav_list *link = disk->parts.next; link != &disk->parts; link = link->next) {
        const auto *part = kav_list_entry(link, const kavdisk_part, link);
        text += std::string(" ") + part->name + " " + (part->guid ? part->guid : "-") + " " +
                (part->fs ? part->fs : "-");
    }
    return text;
}

void expect_same_or_nothing(const std::string &name, const std::string &path)
{
    kav_list list;
    kav_list_init(&list);
    ASSERT_EQ(kavdisk_get_devs(&list, 1), 0);
    const std::string expected = described(list, name);
    kavdisk_free_devs(&list);
    const auto check_list = [&](int result, bool) {
        EXPECT_TRUE(result == -1 ? kav_list_empty(&list) : described(list, name) == expected)
            << described(list, name);
        kavdisk_free_devs(&list);
    };
    at_every_allocation([&] { return kavdisk_get_devs(&list, 1); }, check_list, 5);
    const uint32_t type = get_part_type(path.c_str());
    at_every_allocation([&] { return get_part_type(path.c_str()); },
                        [&](uint32_t result, bool) { EXPECT_TRUE(result == type || result == 0); });
}
} // namespace

TEST_F(disk_image, OutOfMemoryPartitionsAreWholeOrTheListFails)
{
    attach(R"(printf 'label: gpt\n,8M\n' | sfdisk $IMG && mkfs.ext4 -qF -E offset=1048576 $IMG 6M)");
    expect_same_or_nothing(name, path);
}

TEST_F(disk_image, OutOfMemoryAFileSystemIsNeverTakenForABlankDisk)
{
    attach("mkfs.ext4 -qF $IMG");
    expect_same_or_nothing(name, path);
}
