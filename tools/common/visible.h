// Text of a peer, made safe to show: a terminal obeys control characters, whoever wrote them.
#pragma once

#include <string>
#include <string_view>

enum class line_ends { replaced, kept };

// TEXT with a '?' for every control character (C0, DEL, C1), every character that changes the direction of
// writing (U+202A to U+202E, U+2066 to U+2069), and every byte that is not part of a character in UTF-8.
// Newlines may be KEPT.
std::string visible(std::string_view text, line_ends ends = line_ends::replaced);

// How many columns of a terminal visible TEXT takes: two for a wide character, none for one that combines
// with the one before it. Relies on the locale that init_tool sets.
size_t shown_width(std::string_view text);

// The beginning of visible TEXT that fits into so many columns.
std::string cut_to_width(const std::string &text, size_t columns);
