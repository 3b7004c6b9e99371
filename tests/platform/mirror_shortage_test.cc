// The embedded mirrors when memory runs out: a call fails and changes nothing, no record counts as damaged,
// and no mirror counts as level that is not.
#include "platform/include/tw.h"
#include "tests/platform/host.h"
#include "tests/platform/mirror_process.h"
#include "tests/support/shortage.h"

#include <filesystem>

namespace {
namespace fs = std::filesystem;

std::string state_of_mirror()
{
    errno = 0;
    tw_relationship *chain = tw_disk_stat(nullptr);
    const std::string state = chain ? chain->sync_state : errno == ENOMEM ? "unknown" : "none";
    EXPECT_TRUE(!chain || !chain->next);
    tw_disk_stat_release(chain);
    return state;
}

bool is_damaged()
{
    for (const auto &entry : fs::directory_iterator(FOLDER)) {
        if (entry.path().string().find("damaged") != std::string::npos)
            return true;
    }
    return false;
}

bool becomes(const std::string &state)
{
    return eventually([&] { return state_of_mirror() == state; });
}

// Another process that looks at the disks may hold them for a moment.
template <class Call>
bool succeeds(const Call &call)
{
    return eventually([&] { return call() == 0; });
}

// CALL fails and leaves the state as it is, or succeeds with another one.
template <class Call, class Undo>
void expect_all_or_nothing(const Call &call, const std::string &before, const std::string &after,
                           const Undo &undo)
{
    constexpr uint64_t step = 23; // most allocations look at disks
    const auto check = [&](int result, bool) {
        EXPECT_EQ(state_of_mirror(), result == 0 ? after : before);
        const bool had_memory = fault_plan_of_process()->failed == 0;
        if (result == 0 || (had_memory && succeeds(call)))
            undo();
        else
            EXPECT_FALSE(had_memory) << "a failure lasts";
    };
    at_every_allocation(call, check, step);
    EXPECT_FALSE(is_damaged());
}

// In a process of its own, since the library runs its mirrors until the process ends.
template <class Body>
void expect_in_child(const Body &body)
{
    const auto run = [&] {
        body();
        fflush(stdout);
        _exit(testing::Test::HasFailure() ? 1 : 0);
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(0), "");
}
} // namespace

TEST_F(Mirror, OutOfMemoryACallFailsAndChangesNothing)
{
    expect_in_child([] {
        const char *a = A.c_str(), *b = B.c_str();
        const auto protect = [&] { return tw_disk_protect(a, b); };
        const auto protect_again = [&] { EXPECT_TRUE(succeeds(protect)); };
        expect_all_or_nothing(protect, "none", "UnSync", [&] { EXPECT_EQ(tw_disk_unprotect(a), 0); });
        protect_again();
        expect_all_or_nothing([&] { return tw_disk_unprotect(a); }, "UnSync", "none", protect_again);
        write_file(FOLDER + "throttle", "1000\n");
        expect_all_or_nothing([&] { return tw_disk_resync(a, 0); }, "UnSync", "Sync On",
                              [&] {
                                  EXPECT_EQ(tw_disk_unprotect(a), 0);
                                  protect_again();
                              });
    });
    EXPECT_FALSE(is_damaged());
}

TEST_F(Mirror, OutOfMemoryAtTheStartItsRecordIsTakenOverAtTheNextCall)
{
    protect(mirror_process());
    for (unsigned number = 1; number < 200; number += number < 50 ? 1 : 9) {
        expect_in_child([number] {
            fault_plan_of_process()->arm(number, number % 2 == 0, fault_everyone);
            tw_disk_stat_release(tw_disk_stat(nullptr));
            fault_plan_of_process()->disarm();
            EXPECT_TRUE(becomes("UnSync"));
        });
        ASSERT_FALSE(is_damaged()) << number;
    }
}

TEST_F(Mirror, OutOfMemoryItsThreadGoesOnLaterAndIsNeverLevelBefore)
{
    const auto is_equal = [&] {
        return mirror->content().substr(512, SIZE - 512) == source->content().substr(512);
    };
    expect_in_child([&] {
        EXPECT_TRUE(succeeds([] { return tw_disk_protect(A.c_str(), B.c_str()); }));
        EXPECT_EQ(tw_disk_resync(A.c_str(), 0), 0);
        ASSERT_TRUE(becomes("Sync Finished"));
        for (const unsigned number : {1U, 4U, 16U, 64U}) {
            fault_plan &plan = *fault_plan_of_process();
            plan.arm(number, true, fault_background);
            source->write(number * 4096, "written while memory runs out");
            EXPECT_TRUE(eventually([&] { return plan.failed > 0; })) << number;
            const bool is_level = state_of_mirror() == "Sync Finished";
            EXPECT_TRUE(!is_level || is_equal()) << number;
            plan.disarm();
            EXPECT_TRUE(becomes("Sync Finished")) << number;
            EXPECT_TRUE(is_equal()) << number;
        }
    });
}
