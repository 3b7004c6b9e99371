// Tables for a person to read. Cells may hold any text of a peer.
#pragma once

#include <string>
#include <vector>

// Rows of cells; a row may be shorter than others.
using text_table = std::vector<std::vector<std::string>>;

// The rows as lines with aligned columns, two blanks before each column, each as wide as a terminal shows it.
// Cells are made visible. Lines are cut to the width of the terminal if standard output is one.
std::string align(text_table rows);

// True if they are cut.
bool are_tables_cut();

// Lines are left as long as they are. Set once, before the first table.
extern bool are_tables_wide;
