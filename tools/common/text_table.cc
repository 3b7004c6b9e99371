#include "tools/common/text_table.h"

#include "tools/common/visible.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>

bool are_tables_wide = false;

namespace {
// In columns; the largest number for no limit.
size_t room()
{
    winsize size{};
    const bool is_limited =
        !are_tables_wide && ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    return is_limited ? size.ws_col : std::string::npos;
}
} // namespace

bool are_tables_cut()
{
    return room() != std::string::npos;
}

std::string align(text_table rows)
{
    std::vector<size_t> widths;
    for (auto &row : rows) {
        widths.resize(std::max(widths.size(), row.size()));
        for (size_t i = 0; i < row.size(); ++i) {
            row[i] = visible(row[i]);
            widths[i] = std::max(widths[i], shown_width(row[i]));
        }
    }
    const size_t most = room();
    std::string text;
    for (const auto &row : rows) {
        std::string line = "  ";
        for (size_t i = 0; i < row.size(); ++i)
            line += row[i] + std::string(widths[i] + 2 - shown_width(row[i]), ' ');
        line = cut_to_width(line, most);
        text += line.substr(0, line.find_last_not_of(' ') + 1) + "\n";
    }
    return text;
}
