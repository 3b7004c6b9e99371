#include "tools/qelc/views/mirror_watch.h"

#include "tools/common/visible.h"
#include "tools/qelc/views/mirrors.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
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

std::string clock_text()
{
    tm local{};
    const time_t seconds = time(nullptr);
    char text[16] = "";
    strftime(text, sizeof text, "%H:%M:%S", localtime_r(&seconds, &local));
    return text;
}

void print_changes(const synchronisation_list &list, const synchronisation_list &before)
{
    for (size_t i = 0; i < list.size(); ++i) {
        const synchronisation &one = list[i];
        if (i < before.size() && one.mirror.percent == before[i].mirror.percent &&
            one.state() == before[i].state())
            continue;
        printf("%s %s %s %d %%%s\n", clock_text().c_str(), visible(one.mirror.disk).c_str(),
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

// On failure complains and returns none; STATUS is then what the program ends with.
std::optional<mirror_list> ask_for_mirrors(const peer_options &peer, int &status)
{
    const std::unique_ptr<request> reply = ask(peer, command::get_client_info, std::nullopt, status);
    if (!reply)
        return std::nullopt;
    if (reply->recv_head.ret != status_ok) {
        status = print_answer(*reply, false);
        return std::nullopt;
    }
    const char *text = reply->recv_xml.get();
    std::optional<mirror_list> mirrors = mirrors_of(text ? text : "");
    if (!mirrors)
        status = fail_unreadable();
    return mirrors;
}
} // namespace

int watch_mirrors(const peer_options &peer, unsigned seconds)
{
    synchronisation_list list;
    display screen;
    for (int status = exit_ok;; std::this_thread::sleep_for(std::chrono::seconds(seconds))) {
        const std::optional<mirror_list> mirrors = ask_for_mirrors(peer, status);
        if (!mirrors)
            return status;
        follow(list, *mirrors);
        if (list.empty()) {
            puts(mirrors->empty() ? "no mirrors" : "no synchronisation is running");
            return exit_ok;
        }
        if (!screen.show(list))
            return fail(exit_no_answer, "standard output", strerror(errno));
        if (std::ranges::none_of(list, &synchronisation::runs))
            return exit_ok;
    }
}
