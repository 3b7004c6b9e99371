// How the state of a host is judged, compared and laid out, without a host.
#include "client/inventory_records.h"
#include "tools/common/visible.h"
#include "tools/qelc/health/changes.h"
#include "tools/qelc/health/judge.h"
#include "tools/qelc/views/metrics.h"
#include "tools/qelc/views/status.h"
#include "tools/qelc/views/top_page.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <clocale>

namespace {
constexpr time_t now = 2'000'000'000;

mirror_health mirror_of(const std::string &disk, uint32_t state, std::optional<uint64_t> level_ago = 0)
{
    mirror_health one{{.disk = disk, .guids = {"G-" + disk, "M-" + disk}, .state = state}, "M-" + disk, ""};
    one.view.progress.level_ago = level_ago;
    return one;
}

host_health host_with(std::vector<mirror_health> mirrors)
{
    host_health seen{.time = now, .name = "db1", .is_local = true};
    seen.process = daemon_process{.worker = 7};
    seen.answers = true;
    seen.is_adopted = true;
    seen.mirrors = std::move(mirrors);
    seen.snapshots.emplace();
    return seen;
}

std::vector<std::string> texts_of(const std::vector<host_change> &changes)
{
    std::vector<std::string> texts;
    for (const host_change &one : changes)
        texts.push_back(text_of(one));
    return texts;
}

std::string whole_text(const std::vector<screen_line> &lines)
{
    std::string text;
    for (const screen_line &line : lines)
        text += line.text + "\n";
    return text;
}

std::string chosen_line(const std::vector<screen_line> &lines)
{
    const auto found = std::ranges::find(lines, line_kind::chosen, &screen_line::kind);
    return found == lines.end() ? "" : found->text.substr(2, 3);
}
} // namespace

TEST(Health, OfAMirrorIsJudgedByItsStateAndTime)
{
    const health_limits few{.behind_warning = 60, .behind_critical = 600}, none{.behind_critical = 0};
    const struct {
        uint32_t state;
        std::optional<uint64_t> level_ago;
        health_limits limits;
        grade how;
    } cases[] = {
        {backup_synchronised, 9999, few, grade::ok},
        {backup_recovering, 59, few, grade::ok},
        {backup_recovering, 60, few, grade::warning},
        {backup_recovering, 599, few, grade::warning},
        {backup_recovering, 600, few, grade::critical},
        {backup_recovering, 999999, none, grade::warning},
        {backup_recovering, std::nullopt, few, grade::warning},
        {backup_synchronising, 0, few, grade::warning},
        {backup_not_synchronised, 0, few, grade::warning},
        {backup_source_down, 0, few, grade::critical},
        {backup_destination_down, 0, few, grade::critical},
        {77, 0, few, grade::unknown},
    };
    for (const auto &one : cases)
        EXPECT_EQ(judge_mirror(mirror_of("sda", one.state, one.level_ago), one.limits).how, one.how)
            << one.state << " " << one.level_ago.value_or(0);
}

TEST(Health, OfASeriesOfSnapshotsIsJudgedByItsScheduleAndItsLastMark)
{
    const auto series = [](uint64_t start, uint32_t every, time_t taken, time_t failed) {
        snapshot_series one{.name = "g", .is_group = true, .times = {start, every}};
        one.marks.taken_at = taken;
        one.marks.failed_at = failed;
        return one;
    };
    const struct {
        snapshot_series series;
        health_limits limits;
        grade how;
    } cases[] = {
        {series(0, 0, now - 99999, 0), {}, grade::ok}, // without a schedule none is due
        {series(now - 99999, 100, now - 259, 0), {}, grade::ok},
        {series(now - 99999, 100, now - 260, 0), {}, grade::warning},
        {series(now + 500, 100, 0, 0), {}, grade::ok}, // it has not begun
        {series(now - 99999, UINT32_MAX, 0, 0), {}, grade::ok},
        {series(now - 99999, 100, now - 500, 0), {.snapshot_warning = 501}, grade::ok},
        {series(now - 99999, 100, now - 500, 0),
         {.snapshot_warning = 1, .snapshot_critical = 500},
         grade::critical},
        {series(now - 99999, 100, now - 50, now - 49), {}, grade::warning},
        {series(now - 99999, 100, now - 50, now - 51), {}, grade::ok},
    };
    for (const auto &one : cases) {
        host_health seen = host_with({});
        seen.snapshots = {one.series};
        EXPECT_EQ(judge(seen, one.limits).how, one.how) << judge(seen, one.limits).text;
    }
}

TEST(Health, OfAHeartbeatIsJudgedByItsAgeWhereItIsKnown)
{
    const health_limits few{.heartbeat_warning = 60, .heartbeat_critical = 600};
    const struct {
        std::optional<heartbeat_view> heartbeat;
        time_t beats_since;
        grade how;
        const char *text, *manager;
    } cases[] = {
        {{}, 0, grade::ok, "nothing is mirrored", "1.2.3.4, last heartbeat not known here"},
        {{{now + 9, true}}, 0, grade::ok, "nothing is mirrored", "1.2.3.4, last heartbeat 0 s ago"},
        {{{now - 59, true}}, 0, grade::ok, "nothing is mirrored", "1.2.3.4, last heartbeat 59 s ago"},
        {{{now - 60, true}}, 0, grade::warning, "no heartbeat for 60 s", "last heartbeat 60 s ago"},
        {{{now - 60, false}}, 0, grade::warning, "60 s (qelc-manager does not run)", "60 s ago"},
        {{{now - 600, true}}, now, grade::critical, "no heartbeat for 10 min", "last heartbeat 10 min ago"},
        {{{0, true}}, now - 59, grade::ok, "nothing is mirrored", "1.2.3.4, no heartbeat yet"},
        {{{0, true}},
         now - 9999,
         grade::warning,
         "no heartbeat has reached qelc-manager",
         "no heartbeat yet"},
        {{{0, true}}, 0, grade::ok, "nothing is mirrored", "1.2.3.4, no heartbeat yet"},
    };
    for (const auto &one : cases) {
        host_health seen = host_with({});
        seen.manager = {"G", "1.2.3.4", "I"};
        seen.heartbeat = one.heartbeat;
        seen.beats_since = one.beats_since;
        const verdict found = judge(seen, few);
        const std::string page = status_page(seen, found, few);
        EXPECT_EQ(found.how, one.how) << page;
        EXPECT_NE(found.text.find(one.text), std::string::npos) << page;
        EXPECT_NE(page.find(one.manager + std::string("\n")), std::string::npos) << page;
        const bool has_come = one.heartbeat && one.heartbeat->last > 0;
        EXPECT_EQ(metrics_page(seen).find("\nqelcd_heartbeat_age_seconds ") != std::string::npos, has_come);
    }
}

TEST(Health, ChangesAreThoseBetweenTwoLooks)
{
    const host_health level = host_with({mirror_of("sda", backup_synchronised)});
    host_health silent = level, newer = level, released = level;
    silent.answers = false;
    silent.failure = verb_end{exit_no_answer, "gone", ""};
    silent.mirrors.reset();
    silent.is_adopted.reset();
    newer.process->worker = 8;
    released.is_adopted = false;
    released.mirrors.emplace();
    host_health kept = level, pruned = level;
    kept.kept = {"n-1", "n-2"};
    pruned.kept = {"n-2"};
    pruned.marks = {{.time = now, .group = "g", .is_taken = true, .text = "n-3"},
                    {.time = now, .mirror = "M-sda", .is_taken = false, .text = "no room"}};
    const struct {
        host_health before, after;
        std::vector<std::string> texts;
    } cases[] = {
        {level, level, {}},
        {level,
         host_with({mirror_of("sda", backup_recovering), mirror_of("sdb", backup_synchronising)}),
         {"sda: recovering", "sdb: synchronising"}},
        {level, silent, {"daemon: down, gone"}},
        {level, newer, {"daemon: restarted"}},
        {level, released, {"adoption: released", "sda: no longer a mirror"}},
        {kept,
         pruned,
         {"snapshot of group g taken", "snapshot of sda failed, no room", "snapshot n-1 removed"}},
    };
    for (const auto &one : cases) {
        host_health after = one.after;
        carry_over(one.before, after);
        EXPECT_EQ(texts_of(changes_between(one.before, after)), one.texts);
    }
    host_health still_known = silent;
    carry_over(level, still_known);
    EXPECT_EQ(texts_of(changes_between(still_known, level)), std::vector<std::string>{"daemon: up"});
}

TEST(LiveView, FitsEachTerminalAndKeepsTheChosenMirrorInSight)
{
    setlocale(LC_CTYPE, "C.UTF-8");
    std::vector<mirror_health> many;
    for (int i = 10; i < 40; i++)
        many.push_back(
            mirror_of("d" + std::to_string(i), i % 3 == 0 ? backup_synchronising : backup_synchronised));
    many.push_back(mirror_of("\xe6\x97\xa5\xe6\x9c\xac\x1b[31m-with-a-very-long-name", backup_source_down));
    for (const auto &mirrors : {std::vector<mirror_health>{}, std::vector<mirror_health>{many[0]}, many}) {
        for (const auto &[columns, rows] :
             {std::pair(60, 12), {80, 24}, {200, 60}, {30, 6}, {9, 3}, {1, 1}}) {
            top_state state{.seen = host_with(mirrors)};
            state.changes = changes_between(host_with({}), state.seen);
            const auto expect_fit = [&, width = static_cast<size_t>(columns),
                                     height = static_cast<size_t>(rows)] {
                const auto lines = top_lines(state, height, width);
                EXPECT_EQ(lines.size(), height);
                for (const screen_line &line : lines)
                    EXPECT_EQ(shown_width(line.text), width) << line.text;
                EXPECT_EQ(whole_text(lines).find('\x1b'), std::string::npos);
                return lines;
            };
            expect_fit();
            for (size_t i = 0; i + 1 < mirrors.size(); i++) {
                choose(state, 1);
                EXPECT_TRUE(rows < 6 || !chosen_line(expect_fit()).empty()) << rows << " " << i;
            }
            state.is_one_shown = true;
            expect_fit();
        }
    }
}

TEST(LiveView, SortsAndShowsOneMirrorWhole)
{
    auto level = mirror_of("sda", backup_synchronised), far = mirror_of("sdc", backup_recovering, 10),
         down = mirror_of("sdb", backup_destination_down, 3600 * 7);
    far.view.progress.bytes_behind = 1 << 30;
    down.missing = "/dev/sdx has another signature (deadbeef-0000-0000-0000-000000000000)";
    down.view.schedules = {{{now, 3600}, "the group"}};
    top_state state{.seen = host_with({level, down, far})};
    const auto order = [&] {
        std::string names;
        state.chosen.clear();
        for (int i = 0; i < 3; i++) {
            names += chosen_line(top_lines(state, 12, 60));
            choose(state, 1);
        }
        return names;
    };
    EXPECT_EQ(order(), "sdbsdasdc");
    sort_next_way(state);
    EXPECT_EQ(order(), "sdasdbsdc");
    sort_next_way(state);
    EXPECT_EQ(order(), "sdcsdasdb");
    sort_next_way(state);
    EXPECT_EQ(chosen_line(top_lines(state, 12, 60)), "sdb") << "the one that was chosen";
    state.is_one_shown = true;
    std::string text = whole_text(top_lines(state, 24, 40));
    std::erase_if(text,
                  [](char byte) { return byte == ' ' || byte == '\n'; }); // where lines end is left open
    for (const char *piece : {"sdb->M-sdb", "7hago", "(deadbeef-0000-0000-0000-000000000000)", "G-sdb",
                              "every1h", "groupthegroup", "qelcunprotectsdb"})
        EXPECT_NE(text.find(piece), std::string::npos) << piece << "\n" << text;
}

TEST(Metrics, EscapeWhatLabelsMayNotHold)
{
    auto odd = mirror_of("a\"b\\c\nd", backup_recovering, std::nullopt);
    odd.view.percent = 7;
    const std::string page = metrics_page(host_with({odd}));
    EXPECT_NE(
        page.find(
            R"(qelcd_mirror_done_ratio{disk="a\"b\\c?d",guid="G-a\"b\\c?d",mirror="M-a\"b\\c?d"} 0.07)"),
        std::string::npos)
        << page;
    EXPECT_EQ(page.find("behind_seconds"), std::string::npos) << "nobody knows";
    EXPECT_TRUE(page.ends_with("\n# EOF\n"));
}
