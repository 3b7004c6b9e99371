// Odd files and disks of the host: none of them keeps the daemon from serving.
#include "base/xml.h"
#include "tests/support/system_test.h"

#include <sys/stat.h>

#include <csignal>
#include <cstring>
#include <filesystem>

namespace {
class host : public system_test {};

// None when there is no well-formed report.
std::optional<std::string> reported_version()
{
    const auto answer = ask(command::scan_client);
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
        std::optional<std::string> issue; // none: a pipe in its place, which nobody writes to
        std::string version;
    } const cases[] = {
        {"no line end", ""},
        {"Host\r\nmore\n", "Host"},
        {"\xff\x01<&\x80 Host\n", "?\?<&? Host"},
        {"\\S\n", "Red Host 9"},
        {"\\S \n", "\\S "},
        {std::string(10 << 20, 'A'), std::string(511, 'A')},
        {std::nullopt, ""},
    };
    write_file("/etc/redhat-release", "Red Host 9\n");
    std::filesystem::remove("/etc/mtab");
    std::filesystem::create_directory("/etc/mtab");
    for (const auto &one : cases) {
        std::filesystem::remove("/etc/issue");
        if (one.issue)
            write_file("/etc/issue", *one.issue);
        else
            ASSERT_EQ(mkfifo("/etc/issue", 0600), 0);
        daemon.start();
        const std::string version = reported_version().value_or("no report");
        EXPECT_EQ(version.substr(0, 511), one.version) << one.issue.value_or("a pipe").substr(0, 20);
        EXPECT_LE(version.size(), 512U);
        qelcd::stop();
    }
    std::filesystem::remove("/etc/issue");
    daemon.start();
    EXPECT_EQ(reported_version(), "");
    log.expect(LOG_ERR, "Failed to open file /etc/issue");
}

TEST_F(host, FileInPlaceOfADiskAndAVolumeWithoutIdentityAreLeftAlone)
{
    const std::string path = "/var/tmp/no-disk";
    const std::string content(512, '\0');
    write_file(path, content);
    scripted_disk volume = disk_at("/var/tmp/volume");
    volume.vendor = " QRZ  ";
    scripted_disk nowhere = disk_at("/dev/nowhere");
    nowhere.path = std::nullopt;
    world.disks({nowhere, disk_at(path), volume, disk_at("/var/tmp/not-reported", 0)});
    daemon.start();
    log.expect(LOG_WARNING, "Disk nowhere has no path, it is passed over.");
    log.expect(LOG_ERR, "'" + path + "' is not a block device");
    log.tolerate("'" + path + "' is not a block device");
    EXPECT_EQ(read_file(path), content);
    EXPECT_EQ(world.calls("tw_scsi_get_guid").front(), "tw_scsi_get_guid /var/tmp/volume 64");
    for (const std::string &call : world.calls())
        EXPECT_EQ(call.find("not-reported"), std::string::npos) << call;
}
