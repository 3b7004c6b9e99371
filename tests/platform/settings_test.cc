// What the embedded libraries make of the file in which an administrator sets them.
#include "platform/linux/state/settings.h"
#include "tests/support/captured_log.h"
#include "tests/support/files.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <regex>

namespace {

constexpr char FILE_NAME[] = "/etc/kavtessaron/embedded.conf";

TEST(Settings, AreWhatTheFileSaysAndADefaultForWhatCannotBeUsed)
{
    using std::chrono::milliseconds, std::chrono::seconds;
    const embedded_settings defaults;
    const struct {
        std::string text;
        embedded_settings expected;
        std::string left_out; // number of each line and why
    } rows[] = {
        {"# nothing\n\n   \t\r\n", defaults, ""},
        {"freeze=yes\n  freeze_after = 0 # at once\nfreeze_deadline\t=\t5000\r\nthrottle = 30M\n"
         "tracking_page = 64K\ntracking_memory = 1G\nunkept = journal",
         {true, seconds(0), milliseconds(5000), 30 << 20, 65536, 1 << 30, unkept_marks::journal},
         ""},
        {"throttle = 0\nthrottle = 5\n", {.throttle = 0}, "2: throttle is set a second time\n"},
        {"keep = last 2, hourly 3, daily 4, weekly\t5,monthly 6\nkeep disk 0D97 = all\nkeep group a b = "
         "daily 1\nfill_limit = 100",
         {.keep = {{2, 3, 4, 5, 6}, {{"disk 0d97", {}}, {"group a b", {0, 0, 1, 0, 0}}}}, .fill_limit = 100},
         ""},
        // A rule that cannot be read lets nothing go.
        {"keep = last 0\nkeep disk 1 = dayly 1\nkeep disk 2 = last 1, last 2\nkeep group = last 1\nkeep disk "
         "3 =\n",
         {.keep = {{}, {{"disk 1", {}}, {"disk 2", {}}, {"disk 3", {}}}}},
         "1: keep: \"last 0\" has no number from 1 to 100000 after last\n"
         "2: keep disk 1: \"dayly 1\" is neither all nor parts like last 10, hourly 24, daily 7, weekly 4, "
         "monthly 12\n"
         "3: keep disk 2: \"last 1, last 2\" has last twice\n4: there is no setting \"keep group\"\n"
         "5: keep disk 3: \"\" is neither all nor parts like last 10, hourly 24, daily 7, weekly 4, monthly "
         "12\n"},
        {"throttle = 18446744073709551615\n", {.throttle = UINT64_MAX}, ""},
        {"throttle = 17179869184G\ntracking_page = 2M\n", defaults,
         "1: throttle: \"17179869184G\" is no number\n"
         "2: tracking_page: \"2M\" is neither 0 nor a power of two between 4096 and 1M\n"},
        {"freeze = on\nfreeze_deadline = 499\nfreeze_after = -1\ntracking_memory = M\n", defaults,
         "1: freeze: \"on\" is neither yes nor no\n2: freeze_deadline: \"499\" is not between 500 and 5000\n"
         "3: freeze_after: \"-1\" is no number\n4: tracking_memory: \"M\" is no number\n"},
        {"tracking_page = 12288\n\nFreeze = yes\nfreeze yes\nthr\x1bottle = 1\n", defaults,
         "1: tracking_page: \"12288\" is neither 0 nor a power of two between 4096 and 1M\n"
         "3: there is no setting \"Freeze\"\n4: \"freeze yes\" has no =\n"
         "5: there is no setting \"thr%1Bottle\"\n"},
    };
    const std::regex frame("4 " + std::string(FILE_NAME) + ":(.*); the line is left out\n");
    for (const auto &row : rows) {
        write_file(FILE_NAME, row.text);
        EXPECT_TRUE(read_settings() == row.expected) << row.text;
        EXPECT_EQ(std::regex_replace(take_log(), frame, "$1\n"), row.left_out) << row.text;
        EXPECT_TRUE(read_settings() == row.expected) << row.text;
        EXPECT_EQ(take_log(), "") << "it was said already";
    }
    remove(FILE_NAME);
    EXPECT_TRUE(read_settings() == defaults);
}

} // namespace
