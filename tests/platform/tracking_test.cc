// Mirrors whose source is tracked by the kernel: what is read, and when they may not be called level.
#include "platform/linux/state/mirror_hold.h"
#include "platform/linux/state/progress.h"
#include "platform/linux/tracking/program.h"
#include "platform/linux/tracking/write_tracker.h"
#include "tests/platform/host.h"
#include "tests/platform/mirror_process.h"
#include "tests/support/eventually.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <thread>

namespace {

namespace fs = std::filesystem;
using std::chrono::steady_clock;

class TrackedMirror : public Mirror {
protected:
    void SetUp() override
    {
        Mirror::SetUp();
        if (IsSkipped())
            return;
        allow_tracking();
        if (IsSkipped())
            return;
        engine.emplace();
        make_level(*engine);
        EXPECT_NE(engine->ask("log").find("are tracked in pages of 4096 bytes"), std::string::npos);
    }

    // Whenever the mirror is called level, it is equal. Nobody writes meanwhile.
    void expect_equal_when_level()
    {
        ASSERT_TRUE(engine->reaches(FINISHED)) << engine->ask("stat") << engine->ask("log");
        expect_equal();
    }

    std::optional<mirror_process> engine;
};

TEST_F(TrackedMirror, ReadsThePagesThatWereWrittenAndNoOthers)
{
    const std::string blank(4096, 'x');
    const struct {
        const char *way;
        std::function<void()> write;
        uint64_t sectors;
    } rows[] = {
        {"one page", [&] { source->write(9 * MIB, blank); }, 8},
        {"pages far apart", [&] { source->write(4096, blank), source->write(33 * MIB, blank); }, 16},
        {"part of the last page", [&] { source->write(SIZE - 512, std::string(512, 'l')); }, 7},
        {"the signature", [&] { source->write(0, "x"); }, 8},
        {"a discard", [&] { run("blkdiscard -o 5242880 -l 2097152 " + source->path()); }, 4096},
        {"zeroes", [&] { run("blkdiscard -z -o 9437184 -l 1048576 " + source->path()); }, 2048},
    };
    for (const auto &row : rows) {
        const uint64_t before = mirror->sectors_written();
        row.write();
        EXPECT_NO_FATAL_FAILURE(expect_equal_when_level()) << row.way;
        const uint64_t copied = mirror->sectors_written() - before;
        EXPECT_GE(copied, row.sectors) << row.way;
        EXPECT_LE(copied, 3 * row.sectors) << row.way << ": more than on its way, ended, and its end missed";
    }
    engine->kill();
    fs::rename(FOLDER + A + ".mirror", FOLDER + "record");
    engine.emplace().ask("stat");
    EXPECT_FALSE(fs::exists("/sys/fs/bpf/qelcd")) << "nobody follows these writes any more";
    engine->kill();
    fs::rename(FOLDER + "record", FOLDER + A + ".mirror");
    engine.emplace().ask("stat");
    EXPECT_TRUE(eventually([] { return fs::exists("/sys/fs/bpf/qelcd"); }));
    EXPECT_EQ(engine->ask("unprotect " + A), "0");
    EXPECT_FALSE(fs::exists("/sys/fs/bpf/qelcd"));
}

TEST_F(TrackedMirror, GoesOnAfterKillsWithoutLookingAtEverything)
{
    std::mt19937 random{std::random_device{}()};
    // Not the first one, which says what disk this is.
    const auto random_page = [&] { return (random() % (SIZE / 4096 - 1) + 1) * 4096; };
    const uint64_t before = mirror->sectors_written();
    uint64_t written = 0;
    std::string log;
    for (int i = 0; i < number_of("QELCD_KILLS", 10); i++) {
        for (int page = 0; page < 20; page++, written += 8)
            source->write(random_page(), std::string(4096, static_cast<char>(random())));
        std::this_thread::sleep_for(random() % 20 * 1ms);
        log += engine->ask("log");
        engine->kill();
        source->write(random_page(), std::string(4096, '+'));
        written += 8;
        EXPECT_NE(engine.emplace().ask("stat"), "dead");
    }
    EXPECT_NO_FATAL_FAILURE(expect_equal_when_level());
    log += engine->ask("log");
    EXPECT_EQ(log.find("compared with its"), std::string::npos) << log;
    EXPECT_LE(mirror->sectors_written() - before, 4 * written) << "pages are copied again after a kill";
}

// The program of another version is left behind by an upgrade, and goes on until the new one has taken over.
TEST_F(TrackedMirror, IsFollowedByTheNextVersionWithoutLookingAtEverything)
{
    uint64_t read = 0; // sectors, until the mirror is level
    const auto upgrade = [&](bool loses_an_event) {
        ASSERT_TRUE(engine->reaches(FINISHED));
        engine->kill();
        const fs::path folder = fs::directory_iterator("/sys/fs/bpf/qelcd")->path();
        source->write(21 * MIB, std::string(4096, loses_an_event ? 'l' : 'u'));
        {
            const auto maps = open_program(folder, (SIZE / 4096 + 1 + 63) / 64, 1);
            ASSERT_TRUE(maps);
            if (loses_an_event) {
                maps->dirty.values<uint64_t>()[21 * MIB / 4096 / 64] = 0;
                maps->sums.values<write_sums>()[0].sectors -= 8;
            }
        }
        fs::remove(folder / "sleeper");
        fs::rename(folder,
                   folder.string().substr(0, folder.string().rfind('_'))); // the version is behind that
        read = source->sectors_read();
        engine.emplace().ask("stat");
        source->write(22 * MIB, std::string(4096, 'n'));
        EXPECT_TRUE(engine->reaches(FINISHED));
        read = source->sectors_read() - read;
        EXPECT_NO_FATAL_FAILURE(expect_equal_when_level());
        EXPECT_EQ(std::distance(fs::directory_iterator("/sys/fs/bpf/qelcd"), {}), 1)
            << "the former one has ended";
    };
    upgrade(false);
    EXPECT_LE(read, SIZE / 512 / 4);
    engine->ask("log");
    upgrade(true);
    EXPECT_NE(engine->ask("log").find("the version before has not seen all"), std::string::npos);
}

// It is told of a write, and does not find it when it looks at the disks again. Nobody asks how it is
// meanwhile.
TEST_F(TrackedMirror, IsWokenByAWrite)
{
    constexpr int writes = 8;
    steady_clock::duration behind{};
    for (int i = 0; i < writes; i++) {
        std::this_thread::sleep_for(100ms);
        const uint64_t copied = mirror->sectors_written();
        const auto start = steady_clock::now();
        source->write(9 * MIB, std::string(4096, static_cast<char>('a' + i)));
        EXPECT_TRUE(eventually([&] { return mirror->sectors_written() != copied; }));
        behind += steady_clock::now() - start;
    }
    EXPECT_LT(behind / writes, 700ms) << "found at the end of a turn, 1.3 s later";
}

// A writer numbers its pages and waits for each of them: a state that the disk had has all pages up to some
// number and none beyond.
TEST_F(TrackedMirror, IsHeldAsTheDiskWasAtOneMomentUnderAWriterThatNeverRests)
{
    constexpr uint64_t slots = 1000;
    source->write(MIB, std::string(slots * 4096, '\0'));
    std::atomic<uint64_t> ended = 0; // the newest number that is on the disk for certain
    const std::jthread writer([&](const std::stop_token &end) {
        const unique_fd disk(open(source->path().c_str(), O_WRONLY | O_DIRECT | O_CLOEXEC));
        alignas(4096) static uint64_t page[512];
        for (uint64_t number = 1; !end.stop_requested(); number++) {
            page[0] = number;
            EXPECT_EQ(
                pwrite(disk.get(), page, sizeof page, static_cast<off_t>(MIB + number * 37 % slots * 4096)),
                4096);
            ended = number;
            std::this_thread::sleep_for(1ms);
        }
    });
    uint64_t last = 0;
    for (int i = 0; i < number_of("QELCD_MARKS", 10); i++) {
        ASSERT_TRUE(eventually([&] { return ended > last; }));
        ASSERT_EQ(engine->ask("hold " + B), "0");
        const std::string held = mirror->content().substr(MIB, slots * 4096);
        std::vector<uint64_t> numbers(slots);
        for (uint64_t slot = 0; slot < slots; slot++)
            memcpy(&numbers[slot], held.data() + slot * 4096, 8);
        const uint64_t newest = *std::max_element(numbers.begin(), numbers.end());
        EXPECT_GT(newest, last) << "it was not followed";
        for (uint64_t number = newest; number > 0 && number + slots > newest; number--)
            ASSERT_EQ(numbers[number * 37 % slots], number) << "of " << newest;
        last = newest;
        EXPECT_EQ(engine->ask("release"), "0");
    }
}

// Each of them makes the marks worthless: everything is compared before the mirror is level again.
TEST_F(TrackedMirror, IsComparedWhenTheMarksMaySayTooLittle)
{
    const uint64_t place = 21 * MIB;
    // As if the kernel had not passed the write on to the tracker, or only its beginning.
    const auto lose_an_event = [&](bool is_under_way) {
        unique_fd hold; // the pass that made it level may have it for a moment
        ASSERT_TRUE(eventually([&] { return (hold = try_hold_mirrors({B})).is_open(); }));
        source->write(place, std::string(4096, 'e'));
        const fs::path folder = fs::directory_iterator("/sys/fs/bpf/qelcd")->path();
        const auto maps = open_program(folder, (SIZE / 4096 + 1 + 63) / 64, 1);
        ASSERT_TRUE(maps);
        maps->dirty.values<uint64_t>()[place / 4096 / 64] = 0;
        maps->sums.values<write_sums>()[0].sectors -= 8;
        if (is_under_way)
            maps->under_way.values<write_under_way>()[NUMBERS_PER_KIND - 1] = {place / 512, 8};
    };
    const auto is_remembered = [&](uint64_t offset) {
        return read_file(FOLDER + A + ".pages").find(std::to_string(offset) + ":") != std::string::npos;
    };
    const auto change_while_away = [&] {
        uint64_t other = 30 * MIB;
        while (is_remembered(other))
            other += 4096;
        engine->kill();
        mirror->device.reset();
        std::fstream(mirror->image, std::ios::in | std::ios::out).seekp(static_cast<off_t>(other))
            << "changed";
        mirror->device.emplace(mirror->image);
        engine.emplace().ask("stat");
    };
    const auto replace_by_older_copy = [&] {
        engine->kill();
        fs::copy_file(mirror->image, mirror->image + ".old");
        engine.emplace().ask("stat");
        source->write(place, "newer");
        ASSERT_TRUE(eventually([&] { return is_remembered(place); }));
        engine->kill();
        mirror->device.reset();
        fs::rename(mirror->image + ".old", mirror->image);
        mirror->device.emplace(mirror->image);
        EXPECT_TRUE(engine.emplace().reaches("Up Down"));
        EXPECT_EQ(mirror->content().substr(place, 5), "eeeee") << "somebody may have kept it on purpose";
        engine->ask("resync " + A);
    };
    const auto replace_while_copied_to = [&] {
        write_file(FOLDER + "throttle", "20000000\n");
        engine->ask("resync " + A);
        ASSERT_TRUE(eventually([&] { return saved_position() > 8 * MIB; }));
        engine->kill();
        mirror->device.reset();
        std::fstream(mirror->image, std::ios::in | std::ios::out).seekp(5 * MIB) << "another mirror";
        mirror->device.emplace(mirror->image);
        fs::remove(FOLDER + "throttle");
        engine.emplace().ask("stat");
    };
    const std::string iostats = "/sys/block/" + source->device->name() + "/queue/iostats";
    const struct {
        const char *line;
        std::function<void()> harm;
        bool is_compared = true;
    } rows[] = {
        {"", [&] { lose_an_event(true); }, false},
        {"other writes to it than were tracked", [&] { lose_an_event(false); }},
        {"not been changed by the writes of this process alone",
         [&] { mirror->write(place, "foreign"), source->write(place + MIB, "own"); }},
        {"may have changed while it was away", change_while_away},
        {"it is another copy", replace_by_older_copy},
        {"", replace_while_copied_to},
        {"the kernel does not count",
         [&] {
             run("echo 0 >" + iostats);
             source->write(place, "uncounted");
             EXPECT_TRUE(engine->reaches("Down Up"));
             run("echo 1 >" + iostats);
         }},
        {"are tracked in pages of 65536 bytes",
         [&] {
             engine->kill();
             write_file("/etc/kavtessaron/embedded.conf", "tracking_page = 64K\n");
             source->write(place, "in marks of another size");
             engine.emplace().ask("stat");
         }},
    };
    for (const auto &row : rows) {
        engine->ask("log");
        row.harm();
        EXPECT_NO_FATAL_FAILURE(expect_equal_when_level()) << row.line;
        const std::string log = engine->ask("log");
        EXPECT_NE(log.find(row.line), std::string::npos) << row.line << log;
        EXPECT_TRUE(row.is_compared || log.find("as a whole") == std::string::npos) << log;
    }
    fs::remove("/etc/kavtessaron/embedded.conf");
}

// For as long as one process runs the mirror; what the next one takes over is when it was level.
TEST_F(TrackedMirror, TellsEverybodyHowFarItIs)
{
    const std::string file = "/run/twinvault/" + A;
    const auto told = [] { return read_progress(A).value_or(mirror_progress{}); };
    const auto inode = [&] {
        struct stat facts {};
        return stat(file.c_str(), &facts) == 0 && (facts.st_mode & 0777) == 0644 ? facts.st_ino : 0;
    };
    ASSERT_TRUE(eventually([&] { return told().is_level && told().tracked == tracked_writes::yes; }));
    EXPECT_EQ(bytes_behind(told()), 0U);
    const auto at_rest = inode();
    std::this_thread::sleep_for(2500ms);
    EXPECT_EQ(inode(), at_rest) << "nothing has changed";

    const uint64_t rested_at = told().level_at;
    write_file(FOLDER + "throttle", "1000\n");
    {
        unique_fd hold; // so that one pass has all of it
        ASSERT_TRUE(eventually([&] { return (hold = try_hold_mirrors({B})).is_open(); }));
        for (size_t page = 1; page <= 20; page++)
            source->write(page * MIB, "far apart");
    }
    const uint64_t written_at = seconds_since_boot();
    ASSERT_TRUE(eventually([&] { return told().rate > 0; }));
    const mirror_progress busy = told();
    EXPECT_GT(busy.pages_behind, 1U);
    EXPECT_EQ(bytes_behind(busy), busy.pages_behind * 4096);
    EXPECT_TRUE(busy.level_at > rested_at && busy.level_at <= written_at)
        << rested_at << " " << busy.level_at << " " << written_at;
    engine->kill();
    EXPECT_FALSE(read_progress(A)) << "its process is gone";
    engine.emplace().ask("stat");
    ASSERT_TRUE(eventually([&] { return read_progress(A).has_value(); }));
    EXPECT_EQ(told().level_at, busy.level_at);
    fs::remove(FOLDER + "throttle");
    ASSERT_TRUE(eventually([&] { return told().is_level; }));
    EXPECT_EQ(engine->ask("unprotect " + A), "0");
    EXPECT_FALSE(fs::exists(file));
}

// Places at which a sector does not fit into 32 bits, nor a page's number into a page of marks.
TEST_F(Mirror, IsTrackedAtTheEndOfAVeryLargeDisk)
{
    allow_tracking();
    if (IsSkipped())
        return;
    constexpr uint64_t terabyte = 1'000'000'000'000, size = 20 * terabyte, memory = uint64_t{64} << 20;
    constexpr uint64_t page = 131072;
    const test_disk large(size, 0xc);
    std::string why;
    const auto tracker =
        write_tracker::open("large", large.device->name(), size, tracking_page(size, memory), &why);
    ASSERT_TRUE(tracker) << why;
    EXPECT_EQ(tracker->page_size(), page);
    const auto is_alarmed = [&](std::chrono::milliseconds limit) {
        pollfd alarm = {tracker->alarm(), POLLIN, 0};
        return poll(&alarm, 1, static_cast<int>(limit.count())) == 1;
    };
    const struct {
        uint64_t place;
        bool sets_alarm;
    } writes[] = {{2 * terabyte, false}, {17 * terabyte, true}, {size - 4096, true}};
    for (const auto &[place, sets_alarm] : writes) {
        if (sets_alarm)
            tracker->set_alarm();
        EXPECT_FALSE(is_alarmed(0ms));
        large.write(place / 4096 * 4096, std::string(4096, 'x'));
        EXPECT_EQ(is_alarmed(sets_alarm ? patience : 0ms), sets_alarm);
        tracker->end_under_way(); // it has ended, whether the tracker was told or not
        ASSERT_TRUE(tracker->take());
        const auto run = tracker->next_taken(0, page);
        ASSERT_TRUE(run);
        EXPECT_EQ(run->begin, place / page * page);
        EXPECT_EQ(run->end, std::min(run->begin + page, size));
        EXPECT_FALSE(tracker->next_taken(run->end, page));
        EXPECT_EQ(tracker->pages_behind(), 1U);
        tracker->forget_taken();
    }
    remove_tracker("large");
}

TEST(TrackingPage, IsAsLargeAsTheMemoryForTheMarksDemands)
{
    const uint64_t terabyte = 1'000'000'000'000, memory = uint64_t{64} << 20;
    EXPECT_EQ(tracking_page(SIZE_MAX / 2, memory) % 4096, 0U);
    EXPECT_EQ(tracking_page(1, memory), 4096U);
    EXPECT_EQ(tracking_page(uint64_t{1} << 40, memory), 4096U);
    EXPECT_EQ(tracking_page(20 * terabyte, memory), 131072U);
}

} // namespace
