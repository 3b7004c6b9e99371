// What a person types: times, names of disks, and words that are nearly right.
#include "tools/qelc/disk_names.h"
#include "tools/qelc/nearest.h"
#include "tools/qelc/outcome.h"
#include "tools/qelc/points_in_time.h"
#include "tools/qelc/views/short_guid.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace {
constexpr uint64_t noon = 1935396000; // 2031-05-01 12:00 in Central Europe, where it is summer

// The time zone of this process.
void live_in_central_europe()
{
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    tzset();
}
} // namespace

TEST(Words, APointInTimeIsReadAndShownWithItsZone)
{
    live_in_central_europe();
    const std::pair<const char *, std::optional<uint64_t>> cases[] = {
        {"2031-05-01 12:00", noon},
        {"2031-05-01T12:00:00", noon},
        {"2031-05-01 12:00:00 CEST", noon},
        {"2031-05-01T10:00Z", noon},
        {"2031-05-01 10:00:00 Z", noon},
        {"2031-05-01T05:30:00-04:30", noon},
        {"2031-05-01T12:00+02:00", noon},
        {"2031-05-01", noon - 12 * 3600},
        {"1935396000", noon},
        {"2031-05-01 12:00 CET", {}}, // it is not that zone then
        {"2031-05-01T12:00+2", {}},
        {"2031-05-01T12:00+02:00x", {}},
        {"2031-05-01 12", {}},
        {"2031-05-01 24:01", {}},
        {"2031-02-29 12:00", {}},
        {"2031-02-29T12:00Z", {}},
        {"2031-03-30 02:30", {}}, // the clock skips it
        {"1969-12-31T23:00Z", {}},
        {"yesterday 12:00", {}},
        {"tomorrows 12:00", {}},
        {"25:00", {}},
        {"12:00 13:00", {}},
        {"0", {}},
        {"-5", {}},
        {"99999999999999999999", {}},
        {"", {}},
    };
    for (const auto &[text, point] : cases)
        EXPECT_EQ(parse_point_in_time(text), point) << text;
    EXPECT_EQ(local_time_text(noon), "2031-05-01 12:00:00 CEST");
    EXPECT_EQ(utc_time_text(noon), "2031-05-01T10:00:00Z");
    const auto now = static_cast<uint64_t>(time(nullptr));
    EXPECT_LT(*parse_point_in_time("today 00:00"), now + 1);
    EXPECT_GT(*parse_point_in_time("tomorrow"), now);
    EXPECT_GT(*parse_point_in_time("00:00"), now);
}

TEST(Words, AnIntervalHasAUnit)
{
    const std::pair<const char *, std::optional<uint32_t>> cases[] = {
        {"90", 90},         {"90s", 90},      {"15min", 900}, {"15 m", 900},
        {"1h", 3600},       {"2d", 172800},   {"1w", 604800}, {"0", {}},
        {"0h", {}},         {"h", {}},        {"-1h", {}},    {"1 hour", {}},
        {"1h30", {}},       {"1  h", {}},     {"1.5h", {}},   {"4294967295", ~0U},
        {"4294967296", {}}, {"1193047h", {}}, // more than 32 bits
        {"", {}},           {" 1h", {}},
    };
    for (const auto &[text, seconds] : cases)
        EXPECT_EQ(parse_interval(text), seconds) << text;
}

TEST(Words, ADiskIsWhatItsNameOrTheBeginningOfItsGuidSays)
{
    const std::string whole = "1fc55928-0000-0000-0000-000000000000";
    mirror_view mirror{.disk = "sdb", .guids = {"1fD0", "77C0"}};
    std::vector<named_disk> known = names_of_disks(
        {{.name = "sdb", .guid = "1fD0"},
         {.name = "sdc", .guid = whole},
         {.name = "cciss!c0d0", .guid = "ab11", .partitions = {{.name = "p1", .guid = "ab11-01"}}},
         {.name = "ab", .guid = "cd22"},
         {.name = "other path", .guid = "cd22"},
         {.name = "none", .guid = ""}},
        {mirror}, false);
    add_guids(known, {"1fD0", "EE33"});
    const std::pair<const char *, std::vector<std::string>> cases[] = {
        {"sdb", {"1fD0"}},
        {"/dev/sdc", {whole}},
        {"/dev/cciss/c0d0", {"ab11"}},
        {"1FC5", {whole}},
        {"1f", {"1fD0", whole}}, // both
        {"1FD0", {"1fD0"}},      // whole, though not the only one that begins so
        {"ab", {"cd22"}},        // a name comes before a beginning
        {"other path", {"cd22"}},
        {"cd22", {"cd22"}}, // one disk with two paths
        {"77c", {"77C0"}},
        {"ab1", {"ab11"}}, // not its partition
        {"AB11-0", {"ab11-01"}},
        {"p1", {"ab11-01"}},
        {"ee33", {"EE33"}},
        {"e", {}}, // too short
        {"none", {}},
        {"SDB", {}}, // names are as the kernel has them
        {"", {}},
    };
    for (const auto &[text, guids] : cases) {
        std::vector<std::string> found;
        for (const named_disk &one : disks_meant(known, text, false))
            found.push_back(one.guid);
        EXPECT_EQ(found, guids) << text;
    }
    for (const std::string &wrong :
         {whole.substr(1), whole + "0", "xfc55928" + whole.substr(8), std::string()})
        EXPECT_FALSE(is_guid(wrong)) << wrong;
    EXPECT_TRUE(is_guid(whole));
}

TEST(Words, AGuidIsCutToWhatTellsItApart)
{
    const std::vector<std::string> all = {
        "1fc55928-0000-a", "1FC55928-0001-b", "0d97b381-00", "0d97b381-00", "x", "abcdefgh", "abcdefgh-1"};
    const std::pair<const char *, const char *> cases[] = {
        {"1fc55928-0000-a", "1fc55928-0000"},
        {"1FC55928-0001-b", "1FC55928-0001"},
        {"0d97b381-00", "0d97b381"},
        {"x", "x"},
        {"abcdefgh", "abcdefgh"},
        {"abcdefgh-1", "abcdefgh-"},
        {"", ""},
    };
    for (const auto &[guid, shown] : cases)
        EXPECT_EQ(short_guid(guid, all), shown);
}

TEST(Words, ANearWordIsOffered)
{
    const std::vector<std::string> known = {"mirrors",  "protect",   "unprotect",
                                            "snapshot", "snapshots", "db set"};
    const std::pair<const char *, const char *> cases[] = {
        {"mirors", "mirrors"},
        {"mirrros", "mirrors"},
        {"protekt", "protect"},
        {"snapshott", "snapshot"},
        {"snapshoss", "snapshots"},
        {"xprotect", "protect"},
        {"mi", ""},
        {"volumes", ""},
        {"db", ""},
        {"", ""},
    };
    for (const auto &[word, near] : cases)
        EXPECT_EQ(nearest(word, known), near) << word;
    EXPECT_EQ(nearest(std::string(10000000, 'x'), known), ""); // at once
}

TEST(Words, TheExitStatusIsThatOfTheItems)
{
    const verb_item done{"disk", "a"}, refused{"disk", "b", "", exit_refused, "x"},
        missing{"disk", "c", "", exit_not_found, "y"};
    const std::pair<std::vector<verb_item>, exit_status> cases[] = {
        {{}, exit_ok},
        {{done, done}, exit_ok},
        {{done, refused}, exit_partly},
        {{missing, done}, exit_partly},
        {{refused, refused}, exit_refused},
        {{missing, missing}, exit_not_found},
        {{missing, refused}, exit_refused},
        {{refused, missing}, exit_refused},
    };
    for (const auto &[items, status] : cases)
        EXPECT_EQ(outcome_of(items, "h").status, status);
    EXPECT_EQ(outcome_of({done, refused, missing}, "h").reason, "b: x; c: y");
    EXPECT_EQ(outcome_of({done}, "h").hint, "");
}
