#include "tools/common/text_table.h"

#include "tools/common/visible.h"

#include <algorithm>

std::string align(text_table rows)
{
    std::vector<size_t> widths;
    for (auto &row : rows) {
        widths.resize(std::max(widths.size(), row.size()));
        for (size_t i = 0; i < row.size(); ++i) {
            row[i] = visible(row[i]);
            widths[i] = std::max(widths[i], row[i].size());
        }
    }
    std::string text;
    for (const auto &row : rows) {
        std::string line = "  ";
        for (size_t i = 0; i < row.size(); ++i)
            line += row[i] + std::string(widths[i] + 2 - row[i].size(), ' ');
        text += line.substr(0, line.find_last_not_of(' ') + 1) + "\n";
    }
    return text;
}
