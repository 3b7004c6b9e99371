// The embedded mirrors on real loop disks, in a private host of their own.
#include "platform/linux/state/mirror_hold.h"
#include "tests/platform/host.h"
#include "tests/platform/mirror_process.h"
#include "tests/support/eventually.h"

#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <functional>

namespace {

namespace fs = std::filesystem;

TEST_F(Mirror, IsMadeEqualAndThenFollowsWithWhatDiffers)
{
    const test_disk bystander(SIZE, 0xc);
    const mirror_process engine;
    EXPECT_EQ(engine.ask("stat") + engine.ask("workers"), "0");
    const uint64_t before = source->sectors_written() + bystander.sectors_written();
    ASSERT_NO_FATAL_FAILURE(make_level(engine));
    expect_equal();
    EXPECT_EQ(source->sectors_written() + bystander.sectors_written(), before);

    const uint64_t level = mirror->sectors_written();
    std::this_thread::sleep_for(1500ms);
    EXPECT_EQ(mirror->sectors_written(), level) << "nothing was written";
    EXPECT_EQ(open(mirror->path().c_str(), O_RDONLY | O_EXCL | O_CLOEXEC), -1) << "it is claimed";
    write_file(FOLDER + "throttle", "1000\n");
    source->write(0, "\x01"); // beside the signature, which stays another
    source->write(7 * MIB + 4096, "two"), source->write(7 * MIB + 8192, "pages"),
        source->write(SIZE - 1, "!");
    EXPECT_NE(engine.ask("stat").find("Recovery On"), std::string::npos);
    fs::remove(FOLDER + "throttle");
    ASSERT_TRUE(engine.reaches(FINISHED)) << engine.ask("stat") << engine.ask("log");
    expect_equal();
    EXPECT_EQ(mirror->sectors_written() - level, 8U + 16 + 7) << "the pages that differ, and no more";
    ASSERT_TRUE(run("blkdiscard -o 5242880 -l 1048576 " + source->path()));
    ASSERT_TRUE(engine.reaches(FINISHED));
    expect_equal();

    EXPECT_EQ(engine.ask("unprotect " + A), "0");
    EXPECT_TRUE(eventually([&] { return engine.ask("stat") + engine.ask("workers") == "0"; }));
    EXPECT_FALSE(fs::exists(FOLDER + A + ".mirror"));
    EXPECT_EQ(engine.ask("resync " + A), "-1");
}

TEST_F(Mirror, ResumesAfterAKillFromItsCheckpoint)
{
    std::optional<mirror_process> engine;
    engine.emplace();
    write_file(FOLDER + "throttle", "6000000\n");
    ASSERT_NO_FATAL_FAILURE(protect(*engine, "resync " + A));
    EXPECT_TRUE(eventually([&] { return saved_position() > 4 * MIB; }));
    source->write(2 * MIB, "behind"); // of what is copied already
    engine->kill();
    ASSERT_TRUE(eventually([&] { return !mirror->is_claimed(); }));
    const uint64_t position = saved_position();
    const uint64_t written = mirror->sectors_written();
    write_file(FOLDER + "throttle", "fast\n");
    write_file(FOLDER + ".new", "twinv"); // a record that was not finished
    engine.emplace();
    ASSERT_TRUE(engine->reaches(FINISHED)) << engine->ask("stat");
    EXPECT_EQ(mirror->sectors_written() - written, (SIZE - position) / 512 + 8) << "all else was there";
    expect_equal();
    EXPECT_NE(engine->ask("log").find("throttle holds no number"), std::string::npos);
    EXPECT_FALSE(fs::exists(FOLDER + ".new"));

    // What is written while nobody looks is found all the same; what is level stays so.
    engine->kill();
    const uint64_t level = mirror->sectors_written();
    engine.emplace();
    EXPECT_EQ(engine->ask("stat"), A + " " + FINISHED + ";");
    std::this_thread::sleep_for(1500ms);
    EXPECT_EQ(mirror->sectors_written(), level);
    engine->kill();
    source->write(9 * MIB, "meanwhile");
    engine.emplace();
    EXPECT_EQ(engine->ask("stat"), A + " Recovery On 0 Up Up;");
    ASSERT_TRUE(engine->reaches(FINISHED));
    EXPECT_EQ(mirror->sectors_written(), level + 8);
    expect_equal();

    // The counters of another boot say nothing, even when they are the same.
    engine->kill();
    mirror->write(11 * MIB, "lost");
    ASSERT_TRUE(run("sed -i 's/^boot ./boot x/' " + FOLDER + A + ".mirror"));
    engine.emplace();
    ASSERT_TRUE(engine->reaches(FINISHED));
    expect_equal();
}

TEST_F(Mirror, StopsAndStaysStoppedUntilTheNextResync)
{
    std::optional<mirror_process> engine;
    engine.emplace();
    ASSERT_NO_FATAL_FAILURE(make_level(*engine));
    EXPECT_EQ(engine->ask("stop " + A), "0");
    EXPECT_EQ(engine->ask("stat"), A + " " + FINISHED + ";") << "nothing was to be stopped";
    write_file(FOLDER + "throttle", "4000000\n");
    EXPECT_EQ(engine->ask("resync " + A), "0");
    ASSERT_TRUE(eventually([&] { return mirror->sectors_written() > 2 * SIZE / 512; }, 1s) ||
                engine->reaches("Sync On 2"));
    for (int i = 0; i < 2; i++)
        EXPECT_EQ(engine->ask("stop " + A), "0");
    EXPECT_NE(engine->ask("stat").find("Sync Cancelled"), std::string::npos);
    std::this_thread::sleep_for(300ms); // blocks on their way
    const uint64_t written = mirror->sectors_written();
    source->write(40 * MIB, "later");
    std::this_thread::sleep_for(1500ms);
    EXPECT_EQ(mirror->sectors_written(), written);
    engine.emplace();
    EXPECT_NE(engine->ask("stat").find("Sync Cancelled"), std::string::npos);
    std::this_thread::sleep_for(1500ms);
    EXPECT_EQ(mirror->sectors_written(), written);
    fs::remove(FOLDER + "throttle");
    EXPECT_EQ(engine->ask("resync " + A), "0");
    ASSERT_TRUE(engine->reaches(FINISHED));
    expect_equal();

    write_file(FOLDER + "throttle", "1000\n");
    EXPECT_EQ(engine->ask("resync " + A), "0");
    ASSERT_TRUE(engine->reaches("Sync On"));
    const disk_list disks(0);
    ASSERT_TRUE(disks.find(mirror->device->name()));
    EXPECT_NE(disks.find(mirror->device->name())->state, 0U) << "in use by nobody but the mirrors";
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(engine->ask("unprotect " + A), "0");
    EXPECT_LT(std::chrono::steady_clock::now() - start, 2s);
}

TEST_F(Mirror, StaysAsItIsWhileItIsHeldForASnapshot)
{
    const mirror_process engine;
    ASSERT_NO_FATAL_FAILURE(make_level(engine));
    const uint64_t level = mirror->sectors_written();
    {
        unique_fd hold; // the pass that made it level may have it for a moment
        ASSERT_TRUE(eventually([&] { return (hold = try_hold_mirrors({B})).is_open(); }));
        ASSERT_TRUE(!try_hold_mirrors({A, B}).is_open() && try_hold_mirrors({A}).is_open());
        source->write(3 * MIB, "later");
        std::this_thread::sleep_for(2500ms);
        EXPECT_EQ(engine.ask("stat"), A + " Recovery On 0 Up Up;");
        EXPECT_EQ(mirror->sectors_written(), level);
    }
    ASSERT_TRUE(engine.reaches(FINISHED));
    expect_equal();
}

// A volume is known by what SCSI tells of it, so all of the source is copied.
TEST_F(Mirror, OfAVolumeOfTheStorageSystemIsEqualToTheLastByte)
{
    const std::string guid = "0a1b2c3d-1111-2222-3333-444455556666", name = mirror->device->name();
    ASSERT_TRUE(
        run("cd /sys/block; for d in " + source->device->name() + " " + name +
            "; do t=/run/sys/block/$d; mkdir -p $t/holders $t/loop; "
            "for f in size dev ro removable stat loop/backing_file; do cat $d/$f >$t/$f; done; done"));
    write_facts("/run/sys/block/" + name + "/device", "vendor=QRZ model=disk");
    write_file("/run/sys/block/" + name + "/device/vpd_pg80", std::string("\0\x80\0\x24", 4) + guid);
    ASSERT_TRUE(run("mount --bind /run/sys /sys"));
    const mirror_process engine;
    EXPECT_EQ(engine.ask("protect " + A + " " + guid), "0") << engine.ask("log");
    EXPECT_EQ(engine.ask("resync " + A), "0");
    EXPECT_TRUE(engine.reaches(FINISHED));
    EXPECT_TRUE(run("umount -l /sys"));
    expect_equal(0xa);
}

TEST_F(Mirror, TakesALinkDownWhileADiskFailsOrIsGoneAndResumes)
{
    const mirror_process engine;
    ASSERT_NO_FATAL_FAILURE(make_level(engine));
    engine.ask("log");
    const auto resize = [](const test_disk &disk, size_t bytes) { fs::resize_file(disk.image, bytes); };
    std::optional<loop_disk> second_path;
    const struct {
        const char *links, *line;
        std::function<void()> harm, heal;
        std::chrono::milliseconds stays_down = 0ms; // without another line
    } rows[] = {
        {"Recovery On 0 Up Down", "Input/output error",
         [&] { resize(*mirror, 20 * MIB), source->write(3 * MIB, "new"); },
         [&] { resize(*mirror, SIZE + MIB); }},
        {" Down Up", "it cannot be read at byte ",
         [&] { resize(*source, 20 * MIB), engine.ask("resync " + A); }, [&] { resize(*source, SIZE); }},
        {"Up Down", "is smaller than the disk",
         [&] { resize(*mirror, MIB), run("losetup -c " + mirror->path()); },
         [&] { resize(*mirror, SIZE + MIB), run("losetup -c " + mirror->path()); }},
        {"Down Up", "the size of", [&] { resize(*source, SIZE + MIB), run("losetup -c " + source->path()); },
         [&] { resize(*source, SIZE), run("losetup -c " + source->path()); }},
        {"Down Up", "there are several disks", [&] { second_path.emplace(source->image); },
         [&] { second_path.reset(); }, 2500ms},
    };
    for (const auto &row : rows) {
        row.harm();
        EXPECT_TRUE(engine.reaches(row.links)) << row.line << engine.ask("stat");
        std::this_thread::sleep_for(row.stays_down);
        row.heal();
        EXPECT_TRUE(engine.reaches(FINISHED)) << row.line << engine.ask("stat");
        const std::string log = engine.ask("log");
        EXPECT_TRUE(log.starts_with("3 ") && log.find(row.line) < log.find("\n")) << row.line << "\n" << log;
        EXPECT_EQ(log.find("\n3 "), log.npos) << "once: " << log;
        EXPECT_NE(log.find("is up again"), log.npos);
        expect_equal();
    }
}

TEST_F(Mirror, BelongsToOneProcessAndObeysWholeRecordsOnly)
{
    std::optional<mirror_process> owner;
    owner.emplace();
    ASSERT_NO_FATAL_FAILURE(make_level(*owner));
    std::optional<mirror_process> other_process;
    const mirror_process &reader = other_process.emplace();
    EXPECT_EQ(reader.ask("stat"), A + " " + FINISHED + ";");
    for (const std::string command : {"resync ", "stop ", "unprotect ", "protect 1 "}) {
        EXPECT_EQ(reader.ask(command + A), "-1") << command;
        EXPECT_NE(reader.ask("log").find("another process runs the mirrors"), std::string::npos) << command;
    }
    EXPECT_EQ(owner->ask("workers") + reader.ask("workers"), "10");
    owner->kill();
    EXPECT_EQ(reader.ask("resync " + A), "0") << "the owner has gone";
    EXPECT_TRUE(reader.reaches(FINISHED));

    const std::string path = FOLDER + A + ".mirror", whole = read_file(path);
    const std::string other = guid_of(0xd);
    const auto with = [&](const std::string &from, const std::string &to) {
        std::string text = whole;
        return text.replace(text.find(from), from.size(), to);
    };
    const std::string half = whole.substr(0, whole.size() / 2);
    const std::pair<std::string, std::string> bad[] = {
        {A, ""},
        {A, half},
        {A, half + std::string(whole.size() - half.size(), '\0')},
        {A, whole + "more\n"},
        {A, with("\nposition ", "\nposition 18446744073709551616")},
        {A, with("\nsrc_guid ", "\ndest_guid ")},
        {A, with("Sync Finished", "Sync Perhaps")},
        {other, whole},
        {other, with(A, other)}};
    for (const auto &[name, text] : bad) {
        other_process.reset();
        run("rm -f " + FOLDER + "*.mirror*");
        if (name == other)
            write_file(path, whole);
        write_file(FOLDER + name + ".mirror", text);
        const mirror_process next;
        EXPECT_EQ(next.ask("stat"), name == A ? "" : A + " " + FINISHED + ";") << text;
        EXPECT_EQ(read_file(FOLDER + name + ".mirror.damaged-1"), text);
        EXPECT_NE(next.ask("log").find(FOLDER + name), std::string::npos);
    }
}

} // namespace
