// The live view of a host.
#include "base/clock.h"
#include "tools/qelc/health/host_watch.h"
#include "tools/qelc/verbs/families.h"
#include "tools/qelc/views/top_screen.h"

#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <mutex>
#include <thread>

namespace {
constexpr int redraw_ms = 1000;

volatile sig_atomic_t ending_signal = 0;

void note_signal(int number)
{
    ending_signal = number;
}

// Before the library takes the terminal: it leaves signals alone that have a handler already.
void catch_signals()
{
    struct sigaction action {};
    action.sa_handler = note_signal;
    for (const int number : {SIGINT, SIGTERM, SIGHUP})
        sigaction(number, &action, nullptr);
}

// What a thread of its own has seen, since a daemon may take seconds to answer.
struct looks {
    std::mutex lock; // guards what follows
    std::optional<host_health> last;
    std::vector<host_change> changes;
};

void add_changes(looks &to, const host_health &before, const host_health &after)
{
    constexpr size_t most = 100;
    for (host_change &one : changes_between(before, after))
        to.changes.push_back(std::move(one));
    if (to.changes.size() > most)
        to.changes.erase(to.changes.begin(), to.changes.end() - most);
}

[[noreturn]] void keep_looking(const peer_options &peer, looks &to)
{
    host_watch watch(peer);
    host_health before = watch.look();
    for (bool is_first = true;; is_first = false) {
        host_health after = is_first ? before : watch.glance();
        carry_over(before, after);
        {
            const std::lock_guard held(to.lock);
            if (is_first)
                to.changes = marks_in(after);
            else
                add_changes(to, before, after);
            to.last = after;
        }
        before = std::move(after);
        clock_sleep_ms(redraw_ms);
    }
}

void draw(top_screen &screen, top_state &state, looks &from)
{
    bool has_looked = false;
    {
        const std::lock_guard held(from.lock);
        has_looked = from.last.has_value();
        if (has_looked)
            state.seen = *from.last;
        state.changes = from.changes;
    }
    if (has_looked)
        screen.draw(top_lines(state, screen.rows(), screen.columns()));
    else
        screen.draw({{"asking the daemon ..."}});
}

// False to end.
bool obey(top_state &state, top_key key)
{
    switch (key) {
    case top_key::sort:
        sort_next_way(state);
        break;
    case top_key::up:
        choose(state, -1);
        break;
    case top_key::down:
        choose(state, 1);
        break;
    case top_key::enter:
        state.is_one_shown = !state.is_one_shown;
        break;
    default:
        break;
    }
    return key != top_key::quit && ending_signal == 0;
}

// Null if the terminal cannot be drawn on.
bool show_until_the_end(const peer_options &peer, const health_limits &limits)
{
    static looks shared; // the thread that looks goes with the process
    top_screen screen;
    if (!screen.is_open())
        return false;
    std::thread([peer] { keep_looking(peer, shared); }).detach();
    top_state state;
    state.limits = limits;
    do
        draw(screen, state, shared);
    while (obey(state, top_screen::read_key(redraw_ms)));
    return true;
}

int show_top(const peer_options &peer, const verb_options &given, bool as_json)
{
    if (!isatty(STDIN_FILENO) || !isatty(STDOUT_FILENO))
        return print_outcome(
            "top", {exit_refused, "there is no terminal", "qelc events prints lines instead"}, as_json);
    catch_signals();
    if (!show_until_the_end(peer, given.limits))
        return print_outcome("top", {exit_refused, "this terminal cannot be drawn on; TERM says what it is"},
                             as_json);
    fflush(stdout);
    if (ending_signal != 0) {
        signal(ending_signal, SIG_DFL);
        raise(ending_signal);
    }
    std::quick_exit(exit_ok); // a look may be under way
}

constexpr verb table[] = {
    {.name = "top",
     .usage = "[--behind WARNING[,CRITICAL]] [--snapshot-age WARNING[,CRITICAL]]\n"
              "            [--heartbeat WARNING[,CRITICAL]]",
     .description = "show the state of the host in the terminal, all the time",
     .note = "q quits, s sorts by what is worst, by name or by what is most behind, the arrow keys choose\n"
             "a mirror, enter shows all of it.\n",
     .add_options = add_health_limits,
     .look = show_top},
};
} // namespace

std::span<const verb> top_verbs()
{
    return table;
}
