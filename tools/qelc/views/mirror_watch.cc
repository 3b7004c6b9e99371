#include "tools/qelc/views/mirror_watch.h"

#include "client/inventory_records.h"
#include "tools/common/visible.h"
#include "tools/qelc/points_in_time.h"
#include "tools/qelc/views/mirror_verdict.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <thread>

namespace {
using mirror_list = std::vector<mirror_view>;

// A synchronisation that has been seen running.
struct synchronisation {
    mirror_view mirror;
    bool is_gone = false; // the disk no longer has this mirror

    bool runs() const { return !is_gone && is_synchronising(mirror); }
    std::string state() const { return is_gone ? "no longer a mirror" : mirror_state_text(mirror); }
};
using synchronisation_list = std::vector<synchronisation>;

bool is_same(const mirror_view &one, const mirror_view &other)
{
    return one.guids.source == other.guids.source && one.guids.mirror == other.guids.mirror;
}

void follow(synchronisation_list &list, const mirror_list &mirrors)
{
    for (synchronisation &one : list) {
        const auto found = std::ranges::find_if(
            mirrors, [&](const mirror_view &mirror) { return is_same(mirror, one.mirror); });
        one.is_gone = found == mirrors.end();
        if (!one.is_gone)
            one.mirror = *found;
    }
    for (const mirror_view &mirror : mirrors) {
        const bool known = std::ranges::any_of(
            list, [&](const synchronisation &one) { return is_same(mirror, one.mirror); });
        if (!known && is_synchronising(mirror))
            list.push_back({mirror});
    }
}

// Of one that runs; with SEPARATOR before it.
std::string details(const synchronisation &one, const std::string &separator)
{
    const std::string text = one.runs() ? progress_text(one.mirror.progress) : "";
    return text.empty() ? "" : separator + text;
}

// --- On a terminal -----------------------------------------------------------------------------------

struct terminal_size {
    size_t rows = 24;
    size_t columns = 80;
};

terminal_size size_of_terminal()
{
    winsize size{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_row == 0 || size.ws_col == 0)
        return {};
    return {size.ws_row, size.ws_col};
}

std::string bar_line(const synchronisation &one, size_t name_width)
{
    constexpr int width = 20;
    const int percent = std::clamp(one.mirror.percent, 0, 100);
    const auto filled = static_cast<size_t>(percent * width / 100);
    char number[16];
    snprintf(number, sizeof number, "%3d %%", percent);
    std::string name = one.mirror.disk;
    name.resize(name_width, ' ');
    return "  " + name + "  [" + std::string(filled, '#') + std::string(width - filled, '.') + "]  " +
           number + "  " + one.state() + details(one, "  ");
}

// A wrapped line, or more lines than the terminal has, would spoil the next redraw.
std::vector<std::string> bar_lines(const synchronisation_list &list)
{
    const terminal_size size = size_of_terminal();
    size_t name_width = 0;
    for (const synchronisation &one : list)
        name_width = std::max(name_width, one.mirror.disk.size());
    std::vector<std::string> lines;
    for (const synchronisation &one : list)
        lines.push_back(bar_line(one, name_width));
    if (lines.size() >= size.rows) {
        const size_t shown = std::max<size_t>(size.rows, 3) - 2;
        const size_t hidden = lines.size() - shown;
        lines.resize(shown);
        lines.push_back("  and " + std::to_string(hidden) + " more");
    }
    for (std::string &line : lines)
        line.resize(std::min(line.size(), size.columns - 1));
    return lines;
}

// Draws over the DRAWN lines of the last time. Returns how many lines there are now.
size_t draw(const synchronisation_list &list, size_t drawn)
{
    const std::vector<std::string> lines = bar_lines(list);
    if (drawn > 0)
        printf("\033[%zuA", drawn); // up to the first of them
    for (const std::string &line : lines)
        printf("\r%s\033[K\n", visible(line).c_str());
    printf("\033[J"); // a terminal that has shrunk shows fewer lines
    return lines.size();
}

// --- Elsewhere ---------------------------------------------------------------------------------------

void print_changes(const synchronisation_list &list, const synchronisation_list &before)
{
    for (size_t i = 0; i < list.size(); ++i) {
        const synchronisation &one = list[i];
        if (i < before.size() && one.mirror.percent == before[i].mirror.percent &&
            one.state() == before[i].state())
            continue;
        printf("%s %s %s %d %%%s\n", clock_text(time(nullptr)).c_str(), visible(one.mirror.disk).c_str(),
               one.state().c_str(), one.mirror.percent, details(one, ", ").c_str());
    }
}

// --- Both --------------------------------------------------------------------------------------------

class display {
public:
    // Returns false, with errno set, if standard output cannot be written.
    bool show(const synchronisation_list &list)
    {
        if (is_terminal_)
            drawn_ = draw(list, drawn_);
        else
            print_changes(list, shown_);
        shown_ = list;
        return fflush(stdout) == 0;
    }

private:
    bool is_terminal_ = isatty(STDOUT_FILENO) != 0;
    size_t drawn_ = 0;
    synchronisation_list shown_;
};

constexpr std::chrono::seconds patience{60}; // with a daemon that does not answer: it may be restarted

// Of the mirrors that count. Null with the reason in WHY while there is no answer.
std::optional<mirror_list> look(host &at, const std::vector<std::string> &guids, verb_end &why)
{
    try {
        mirror_list mirrors = at.look_again().mirrors;
        std::erase_if(mirrors, [&](const mirror_view &one) {
            return !guids.empty() && std::ranges::find(guids, one.guids.source) == guids.end();
        });
        return mirrors;
    } catch (const verb_end &end) {
        if (end.status != exit_no_answer)
            throw;
        why = end;
        return std::nullopt;
    }
}

std::vector<std::string> guids_meant(host &at, const verb_options &given)
{
    std::vector<std::string> guids;
    for (const std::string &text : given.disks) {
        const named_disk disk = at.disk(text);
        if (!at.mirror_of(disk.guid))
            throw verb_end{exit_not_found, disk.name + " is not protected",
                           "qelc mirrors shows which disks are protected"};
        guids.push_back(disk.guid);
    }
    return guids;
}

// What has been seen from look to look.
class follower {
    // A working process that has just been started may not have gone on with a copy yet.
    static constexpr unsigned certain = 3;

public:
    explicit follower(bool draws) : draws_(draws) {}

    // Throws verb_end if standard output cannot be written.
    void take(const mirror_list &mirrors)
    {
        follow(list_, mirrors);
        note_changes(changes, mirrors);
        if (draws_ && !list_.empty() && !screen_.show(list_))
            throw verb_end{exit_refused, std::string("standard output: ") + strerror(errno), ""};
        answered_ = std::chrono::steady_clock::now();
        const bool is_level = std::ranges::all_of(
            mirrors, [](const mirror_view &one) { return one.state == backup_synchronised; });
        const bool runs = std::ranges::any_of(mirrors, is_synchronising);
        at_rest_ = runs || is_level ? 0 : at_rest_ + 1;
        is_over = is_level || at_rest_ >= certain;
    }

    // Throws WHY if there has been no answer for too long.
    void miss(const verb_end &why)
    {
        at_rest_ = 0;
        if (std::chrono::steady_clock::now() - answered_ > patience)
            throw verb_end{why.status, why.reason, why.hint};
    }

    // Those that were copied and are no mirrors any more.
    mirror_list gone() const
    {
        mirror_list mirrors;
        for (const synchronisation &one : list_) {
            if (one.is_gone)
                mirrors.push_back(one.mirror);
        }
        return mirrors;
    }

    state_changes changes;
    bool is_over = false;

private:
    bool draws_;
    synchronisation_list list_;
    display screen_;
    std::chrono::steady_clock::time_point answered_ = std::chrono::steady_clock::now();
    unsigned at_rest_ = 0; // looks at which nothing ran, though not all was level
};

// The copies are the daemon's: whoever leaves stops none.
void say_and_end(int signal)
{
    constexpr char text[] = "\nwhat is being copied goes on without this command\n";
    static_cast<void>(!write(STDERR_FILENO, text, sizeof text - 1));
    std::signal(signal, SIG_DFL);
    raise(signal);
}
} // namespace

outcome follow_mirrors(host &at, const verb_options &given)
{
    const auto begin = std::chrono::steady_clock::now();
    const std::vector<std::string> guids = guids_meant(at, given);
    std::signal(SIGINT, say_and_end);
    follower seen(given.watch.has_value());
    verb_end why{};
    for (;; std::this_thread::sleep_for(std::chrono::seconds(given.watch.value_or(1)))) {
        const std::optional<mirror_list> mirrors = look(at, guids, why);
        if (mirrors)
            seen.take(*mirrors);
        else
            seen.miss(why);
        if (mirrors && seen.is_over)
            return verdict_of(at, *mirrors, seen.gone(), seen.changes);
        const bool is_late =
            given.limit > 0 && std::chrono::steady_clock::now() - begin >= std::chrono::seconds(given.limit);
        if (is_late && mirrors) {
            outcome end = verdict_of(at, *mirrors, seen.gone(), seen.changes);
            end.headline = "time-out after " + interval_text(given.limit);
            return end;
        }
        if (is_late)
            throw verb_end{exit_no_answer, "time-out: " + why.reason, why.hint};
    }
}
