#include "tests/platform/host.h"

#include <sched.h>
#include <sys/mount.h>

#include <cstdlib>
#include <filesystem>
#include <sstream>

bool run(const std::string &command)
{
    return system(("{ " + command + "; } >/dev/null 2>&1 </dev/null").c_str()) == 0;
}

void write_facts(const std::string &folder, const std::string &facts)
{
    std::istringstream words(facts);
    for (std::string word; words >> word;) {
        const size_t equals = word.find('=');
        write_file(folder + "/" + word.substr(0, equals), word.substr(equals + 1) + "\n");
    }
}

void private_mounts::SetUp()
{
    static const bool allowed =
        unshare(CLONE_NEWNS) == 0 && mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
    if (!allowed)
        GTEST_SKIP() << "no mount namespace of our own: root needed";
}

void disk_image::SetUp()
{
    private_mounts::SetUp();
    if (IsSkipped() || !loop_disk::unavailable().empty())
        GTEST_SKIP() << "no loop devices here";
    folder.emplace("/mnt");
    setenv("IMG", image.c_str(), 1);
}

void disk_image::attach(const std::string &command, bool read_only)
{
    write_file(image, "");
    std::filesystem::resize_file(image, size_t{16} * 1024 * 1024);
    ASSERT_TRUE(run(command)) << command;
    disk.emplace(image, read_only);
    path = disk->path();
    name = disk->name();
    setenv("DEV", path.c_str(), 1);
}

disk_list::disk_list(int flag)
{
    kav_list_init(&head);
    result = kavdisk_get_devs(&head, flag);
}

disk_list::~disk_list()
{
    kavdisk_free_devs(&head);
}
