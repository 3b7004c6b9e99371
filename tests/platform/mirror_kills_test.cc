// A copy whose process is killed again and again, and hosts that come up with the state of some earlier
// moment.
#include "tests/platform/mirror_process.h"
#include "tests/support/eventually.h"
#include "tests/support/files.h"

#include <filesystem>
#include <random>

namespace {

namespace fs = std::filesystem;

// Once with passes over everything, and once with tracked writes.
class KilledMirror : public Mirror, public testing::WithParamInterface<bool> {
protected:
    void SetUp() override
    {
        Mirror::SetUp();
        if (GetParam() && !IsSkipped())
            allow_tracking();
    }

    // At any moment of the next third of a second.
    void kill()
    {
        std::this_thread::sleep_for(random() % 300 * 1ms);
        const uint64_t saved = saved_position();
        engine->kill();
        EXPECT_GE(saved_position(), saved);
    }

    void start() { EXPECT_NE((engine.emplace().ask("stat")), "dead"); }

    void write_page() { source->write(random() % (SIZE / 4096 - 1) * 4096 + 4096, std::to_string(random())); }

    // As a power cut at this moment would leave the state. What was just being renamed is looked for again.
    void keep_state()
    {
        const fs::path cut = "/run/cuts/" + std::to_string(cuts++);
        std::error_code error;
        do {
            error.clear();
            fs::remove_all(cut);
            fs::create_directories(cut);
            for (const std::string &name : {A + ".mirror", std::string(".new")}) {
                if (fs::exists(FOLDER + name) && !fs::copy_file(FOLDER + name, cut / name, error))
                    break;
            }
        } while (error || !fs::exists(cut / (A + ".mirror")));
    }

    std::mt19937 random{std::random_device{}()};
    std::optional<mirror_process> engine{std::in_place};
    int cuts = 0;
};

TEST_P(KilledMirror, GoesOnByItselfFromWhatWasSavedAndLeavesNothingOut)
{
    write_file(FOLDER + "throttle", "5000000\n");
    ASSERT_NO_FATAL_FAILURE(protect(*engine, "resync " + A));
    bool is_level = false; // before the last process, on a machine that is slow to kill
    for (int i = 0; i < number_of("QELCD_KILLS", 6) && !is_level; i++) {
        kill();
        const uint64_t saved = saved_position();
        start();
        is_level = engine->reaches(FINISHED, 0ms);
        EXPECT_TRUE(eventually([&] { return saved_position() > saved || engine->reaches(FINISHED, 0ms); }));
    }
    fs::remove(FOLDER + "throttle");
    ASSERT_TRUE(engine->reaches(FINISHED));
    expect_equal();
    // A second pass would hide what a process that was killed had left out.
    const std::string copied = "Disk " + A + " has been copied to mirror " + B + "\n";
    EXPECT_TRUE(is_level || engine->ask("log").find(copied) != std::string::npos);
}

TEST_P(KilledMirror, IsEqualAfterPowerCutsAtAnyMomentWhileTheDiskIsWrittenTo)
{
    write_file(FOLDER + "throttle", "20000000\n");
    ASSERT_NO_FATAL_FAILURE(protect(*engine, "resync " + A));
    for (int i = 0; i < number_of("QELCD_KILLS", 6); i++) {
        write_page();
        kill();
        start();
        write_page();
        std::this_thread::sleep_for(random() % 300 * 1ms);
        keep_state();
    }
    for (int cut = 0; cut < cuts; cut++) {
        engine->kill();
        fs::remove_all(FOLDER);
        fs::copy("/run/cuts/" + std::to_string(cut), FOLDER);
        write_page();
        start();
        ASSERT_TRUE(engine->reaches(FINISHED)) << read_file(FOLDER + A + ".mirror");
        expect_equal();
    }
}

INSTANTIATE_TEST_SUITE_P(Tracked, KilledMirror, testing::Bool());

} // namespace
