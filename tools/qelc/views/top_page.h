// What the live view shows, as lines that fit into a terminal. It draws nothing itself.
#pragma once

#include "tools/qelc/health/changes.h"
#include "tools/qelc/health/judge.h"

#include <cstddef>
#include <string>
#include <vector>

enum class mirror_order { worst_first, by_name, most_behind_first };

struct top_state {
    host_health seen;
    health_limits limits;
    std::vector<host_change> changes; // the oldest first
    mirror_order order = mirror_order::worst_first;
    std::string chosen; // GUID of a disk; "": the first mirror
    bool is_one_shown = false;
};

enum class line_kind { plain, title, heading, chosen };

struct screen_line {
    std::string text;
    line_kind kind = line_kind::plain;
    grade how = grade::ok;
};

// As many lines as there are ROWS at most, each at most so many columns wide.
std::vector<screen_line> top_lines(const top_state &state, size_t rows, size_t columns);

// Chooses the mirror that many lines further down, or up.
void choose(top_state &state, int distance);

void sort_next_way(top_state &state);
