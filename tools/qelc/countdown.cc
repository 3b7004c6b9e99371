#include "tools/qelc/countdown.h"

#include "tools/common/visible.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

namespace {
// A wrapped line could not be drawn over.
size_t room()
{
    constexpr size_t usual = 80;
    winsize size{};
    const bool is_known = ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    return (is_known ? size.ws_col : usual) - 1;
}
} // namespace

countdown::countdown(std::string what, unsigned seconds)
    : what_(visible(what)), end_(std::chrono::steady_clock::now() + std::chrono::seconds(seconds)),
      is_drawn_(seconds > 0 && isatty(STDERR_FILENO) != 0)
{
    if (seconds > 0 && !is_drawn_)
        fprintf(stderr, "%s for up to %u s\n", what_.c_str(), seconds);
    show();
}

countdown::~countdown()
{
    if (is_drawn_)
        fputs("\r\033[K", stderr);
}

void countdown::show()
{
    if (!is_drawn_)
        return;
    const auto left = std::chrono::ceil<std::chrono::seconds>(end_ - std::chrono::steady_clock::now());
    const std::string line = "  " + std::to_string(std::max<int64_t>(left.count(), 0)) + " s left: " + what_;
    fprintf(stderr, "\r%s\033[K", cut_to_width(line, room()).c_str());
}
