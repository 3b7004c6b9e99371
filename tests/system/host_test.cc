// Odd files and disks of the host: none of them keeps the daemon from serving.
#include "base/xml.h"
#include "tests/support/loop_disk.h"
#include "tests/support/system_test.h"

#include <sys/stat.h>

#include <csignal>
#include <cstring>
#include <filesystem>

namespace {
constexpr uint32_t scan_client = 1;
constexpr size_t signature_offset = 440;
constexpr size_t sector_size = 512;

class host : public system_test {};

// None when there is no well-formed report.
std::optional<std::string> reported_version()
{
    const auto answer = ask(scan_client);
    const xml_doc document = answer ? xml_parse_text(answer->body.c_str()) : nullptr;
    return document ? xml_attribute(find_child(xml_root(document), "Client"), "SysVersion") : std::nullopt;
}

scripted_disk disk_at(const std::string &path, unsigned state = 1)
{
    return {.name = path.substr(path.rfind('/') + 1),
            .path = path,
            .vendor = "ACME    ",
            .model = "Disk",
            .sectors = 2048,
            .state = state,
            .parts = {}};
}
} // namespace

TEST_F(host, VersionComesFromWhateverTheIssueFileHolds)
{
    struct {
        std::optional<std::string> issue;
        std::string version;
    } const cases[] = {
        {"", ""},
        {"no line end", ""},
        {"Host\r\nmore\n", "Host"},
        {"\xff\x01<&\x80 Host\n", "?\?<&? Host"},
        {"\\S\n", "Red Host 9"},
        {"\\S \n", "\\S "},
        {std::nullopt, ""},
    };
    write_file("/etc/redhat-release", "Red Host 9\n");
    pid_t worker = 0;
    for (const auto &one : cases) {
        std::filesystem::remove("/etc/issue");
        if (one.issue)
            write_file("/etc/issue", *one.issue);
        if (worker == 0)
            daemon.start();
        else
            kill(worker, SIGKILL); // a new one reads the file anew
        worker = qelcd::wait_for_new_worker(worker);
        EXPECT_EQ(reported_version(), one.version) << one.issue.value_or("no file");
    }
    log.expect(LOG_ERR, "Failed to open file /etc/issue");
}

TEST_F(host, FileOfAnotherKindIsNotWaitedFor)
{
    for (const char *path : {"/etc/issue", "/etc/mtab"})
        std::filesystem::remove(path);
    ASSERT_EQ(mkfifo("/etc/issue", 0600), 0);
    std::filesystem::create_directory("/etc/mtab");
    daemon.start();
    EXPECT_EQ(reported_version(), "");
}

TEST_F(host, EndlessIssueFileIsCut)
{
    write_file("/etc/issue", std::string(10 << 20, 'A'));
    daemon.start();
    const auto version = reported_version();
    ASSERT_TRUE(version);
    EXPECT_NEAR(static_cast<double>(version->size()), 511.5, 0.5);
    EXPECT_EQ(version->find_first_not_of('A'), std::string::npos);
}

TEST_F(host, OnlyABlankDiskThatIsReportedIsSigned)
{
    if (const std::string reason = loop_disk::unavailable(); !reason.empty())
        GTEST_SKIP() << reason;
    const loop_disk blank(1 << 20), signed_before(1 << 20), not_reported(1 << 20);
    const std::string text(signature_offset, 'x');
    for (const loop_disk *disk : {&blank, &signed_before, &not_reported})
        disk->write(0, text);
    signed_before.write(signature_offset, std::string("\x2a\0\0\0", 4));
    world.disks({disk_at(blank.path()), disk_at(signed_before.path()), disk_at(not_reported.path(), 0)});
    const std::string before = signed_before.read(0, sector_size);
    daemon.start();

    const std::string sector = blank.read(0, sector_size);
    const std::string signature = sector.substr(signature_offset, 4);
    EXPECT_NE(signature, std::string(4, '\0'));
    EXPECT_NE(signature, std::string("\x2a\0\0\0", 4));
    EXPECT_EQ(sector, text + signature + std::string(sector_size - signature_offset - 4, '\0'));
    EXPECT_EQ(signed_before.read(0, sector_size), before);
    EXPECT_EQ(not_reported.read(0, sector_size), text + std::string(sector_size - signature_offset, '\0'));
    log.expect(LOG_WARNING, "Cannot get the signature of diskk " + blank.path() + ".");
}

TEST_F(host, FileInPlaceOfADiskAndAVolumeWithoutIdentityAreLeftAlone)
{
    const std::string path = "/var/tmp/no-disk";
    const std::string content(sector_size, '\0');
    write_file(path, content);
    scripted_disk volume = disk_at("/var/tmp/volume");
    volume.vendor = " QRZ  ";
    world.disks({disk_at(path), volume, disk_at("/var/tmp/not-reported", 0)});
    daemon.start();
    log.expect(LOG_ERR, "'" + path + "' is not a block device");
    log.tolerate("'" + path + "' is not a block device");
    EXPECT_EQ(read_file(path), content);
    EXPECT_EQ(world.calls("tw_scsi_get_guid").front(), "tw_scsi_get_guid /var/tmp/volume 64");
    for (const std::string &call : world.calls())
        EXPECT_EQ(call.find("not-reported"), std::string::npos) << call;
}
