// Tables for a person to read.
#pragma once

#include <string>
#include <vector>

// Rows of cells; a row may be shorter than others.
using text_table = std::vector<std::vector<std::string>>;

// The rows as lines with aligned columns, two blanks before each column.
std::string align(const text_table &rows);
