// What must not be mirrored: every refusal says why, and leaves nothing behind.
#include "tests/platform/host.h"
#include "tests/platform/mirror_process.h"

#include <fcntl.h>
#include <unistd.h>

#include <filesystem>

namespace {

namespace fs = std::filesystem;

TEST_F(Mirror, RefusesWhatMustNotBeMirroredAndLeavesNoTrace)
{
    const test_disk small(8 * MIB, 1), read_only(SIZE, 2, true), raw(SIZE, 3), twin(SIZE, 4),
        other_twin(SIZE, 4), spare(SIZE, 5), mounted(SIZE, 6), claimed(SIZE, 7);
    raw.write(0, "somebody's");
    ASSERT_TRUE(
        run("for i in 0x" + mounted.guid.substr(0, 8) + "=" + mounted.path() + " 0x" +
            claimed.guid.substr(0, 8) + "=" + claimed.path() +
            "; do printf \"label: dos\\nlabel-id: ${i%=*}\\n,4M\\n\" | sfdisk ${i#*=} || exit; done"));
    const bool is_mounted =
        run("partx -a " + mounted.path() + " && mknod /dev/part b $(tr : ' ' </sys/class/block/" +
            mounted.device->name() + "p1/dev) && mkfs.ext4 /dev/part && mount /dev/part /mnt");
    const int claim = open(claimed.path().c_str(), O_RDONLY | O_EXCL | O_CLOEXEC);
    const std::string nobody = guid_of(0x99);
    const struct {
        std::string local, mirror, why;
    } rows[] = {{A, A, "its own mirror"},
                {A, nobody, "disk " + nobody + ": there is no such disk"},
                {nobody, B, "disk " + nobody + ": there is no such disk"},
                {A, raw.guid, raw.path() + " must not be touched"},
                {raw.guid, A, raw.path() + " must not be touched"},
                {A, small.guid, "smaller"},
                {A, read_only.guid, read_only.path() + " must not be touched"},
                {A, twin.guid, "several disks"},
                {A, claimed.guid, "mounted or in use"},
                {A, is_mounted ? mounted.guid : claimed.guid, "mounted or in use"},
                {A, std::string(64, 'a'), "1 to 63 characters"}};
    const mirror_process engine;
    for (const auto &[local, dest, why] : rows) {
        EXPECT_EQ(engine.ask("protect " + local + " " + dest), "-1") << why;
        const std::string log = engine.ask("log");
        EXPECT_TRUE(log.starts_with("3 Cannot mirror disk " + local) && log.find(why) != log.npos)
            << why << log;
    }
    EXPECT_EQ(engine.ask("stat") + engine.ask("workers"), "0");
    EXPECT_FALSE(fs::exists(FOLDER));
    close(claim);

    fs::create_directories("/var/lib");
    ASSERT_TRUE(run("mount --bind /var/lib /var/lib && mount -o remount,bind,ro /var/lib"));
    EXPECT_EQ(engine.ask("protect " + A + " " + B), "-1");
    EXPECT_EQ(engine.ask("stat") + engine.ask("workers"), "0");
    ASSERT_TRUE(run("umount /var/lib"));

    ASSERT_NO_FATAL_FAILURE(protect(engine));
    for (const std::string &pair :
         {A + " " + twin.guid, B + " " + spare.guid, spare.guid + " " + A, spare.guid + " " + B}) {
        engine.ask("log");
        EXPECT_EQ(engine.ask("protect " + pair), "-1") << pair;
        EXPECT_NE(engine.ask("log").find("already"), std::string::npos) << pair;
    }
    for (const std::string verb : {"resync ", "stop ", "unprotect "}) {
        EXPECT_EQ(engine.ask(verb + spare.guid), "-1") << verb;
        EXPECT_NE(engine.ask("log").find(spare.guid), std::string::npos) << verb;
    }
    run("umount /mnt");
}

} // namespace
