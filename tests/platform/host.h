// What the tests borrow from the host, given back even when the test process dies: mounts are made in a mount
// namespace of its own.
#pragma once

#include "platform/include/kavdisk.h"
#include "tests/support/files.h"
#include "tests/support/loop_disk.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

// Runs a shell command, output discarded. True when it exits with 0.
bool run(const std::string &command);

// Writes files as sysfs has them: FACTS are words, each FILE=TEXT, with files below the folder.
void write_facts(const std::string &folder, const std::string &facts);

// Moves this process into its own mount namespace, once; skips the test where that is not allowed.
class private_mounts : public testing::Test {
protected:
    void SetUp() override;
};

// A loop device over an image file. Commands know the two as $DEV and $IMG.
class disk_image : public private_mounts {
protected:
    void SetUp() override;

    // Has COMMAND make the content of an image of 16 MiB, and attaches that.
    void attach(const std::string &command, bool read_only = false);

    const std::string image = "/mnt/image";
    std::string name; // of the device
    std::string path; // the same with /dev/

private:
    std::optional<fake_folder> folder;

protected:
    std::optional<loop_disk> disk;
};

// The record of that kernel name; null for none.
template <class Record>
const Record *find_record(const kav_list &list, const std::string &name)
{
    for (kav_list *link = list.next; link != &list; link = link->next) {
        const Record *record = kav_list_entry(link, Record, link);
        if (name == record->name)
            return record;
    }
    return nullptr;
}

struct disk_list {
    explicit disk_list(int flag);
    ~disk_list();
    disk_list(const disk_list &) = delete;
    disk_list &operator=(const disk_list &) = delete;
    const kavdisk_dev *find(const std::string &name) const { return find_record<kavdisk_dev>(head, name); }
    int result = 0;
    kav_list head;
};
