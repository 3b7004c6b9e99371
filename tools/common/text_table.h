// Tables for a person to read. Cells may hold any text of a peer.
#pragma once

#include <string>
#include <vector>

// Rows of cells; a row may be shorter than others.
using text_table = std::vector<std::vector<std::string>>;

// The rows as lines with aligned columns, two blanks before each column. Cells are made visible.
std::string align(text_table rows);
