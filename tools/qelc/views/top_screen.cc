#include "tools/qelc/views/top_screen.h"

// Its macros have the names of members of containers.
#define NCURSES_NOMACROS
#include <curses.h>

namespace {
// One for each grade, in its order.
void init_colours()
{
    if (!has_colors())
        return;
    start_color();
    use_default_colors();
    constexpr short colours[] = {COLOR_GREEN, COLOR_YELLOW, COLOR_RED, COLOR_CYAN};
    for (short i = 0; i < 4; ++i)
        init_pair(static_cast<short>(i + 1), colours[i], -1);
}

int look_of(const screen_line &line)
{
    const bool is_plain = line.how == grade::ok && line.kind != line_kind::title;
    const int pair = has_colors() && !is_plain ? static_cast<int>(line.how) + 1 : 0;
    const chtype face = line.kind == line_kind::title     ? A_BOLD
                        : line.kind == line_kind::heading ? A_UNDERLINE
                        : line.kind == line_kind::chosen  ? A_REVERSE
                                                          : A_NORMAL;
    return static_cast<int>(face) | COLOR_PAIR(pair);
}
} // namespace

top_screen::top_screen() : screen_(newterm(nullptr, stdout, stdin))
{
    if (!screen_)
        return;
    cbreak();
    noecho();
    keypad(stdscr, TRUE);
    curs_set(0);
    set_escdelay(25); // milliseconds that tell the escape key from an arrow
    init_colours();
}

top_screen::~top_screen()
{
    if (!screen_)
        return;
    endwin();
    delscreen(static_cast<SCREEN *>(screen_));
}

size_t top_screen::rows() const
{
    return static_cast<size_t>(getmaxy(stdscr));
}

size_t top_screen::columns() const
{
    return static_cast<size_t>(getmaxx(stdscr));
}

// The last column of the last line would scroll some terminals; the library knows which.
void top_screen::draw(const std::vector<screen_line> &lines)
{
    erase();
    for (size_t i = 0; i < lines.size(); ++i) {
        attrset(look_of(lines[i]));
        mvaddstr(static_cast<int>(i), 0, lines[i].text.c_str());
    }
    attrset(A_NORMAL);
    refresh();
}

top_key top_screen::read_key(int milliseconds)
{
    constexpr int escape = 27;
    timeout(milliseconds);
    switch (getch()) {
    case 'q':
        return top_key::quit;
    case 's':
        return top_key::sort;
    case KEY_UP:
        return top_key::up;
    case KEY_DOWN:
        return top_key::down;
    case '\n':
    case '\r':
    case KEY_ENTER:
    case escape:
        return top_key::enter;
    default:
        return top_key::none; // none in time, another one, or the terminal has another size now
    }
}
