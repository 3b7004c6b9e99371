// The text form of records in the state folders: a line with owner and kind, a line "KEY VALUE" for each
// field, and a line "end", which is missing in a torn file. Each record has exactly one text form.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// Bytes that are written as they are, besides letters and digits; all others are written as %XX.
inline constexpr std::string_view plain_in_file_names = "-_";
inline constexpr std::string_view plain_in_words = "-_./:;+@=~()[]{}#!?*$&";
inline constexpr std::string_view plain_in_values = "-_./:;+@=~()[]{}#!?*$& ,";

std::string escaped(std::string_view text, std::string_view plain = plain_in_words);

using record_fields = std::vector<std::pair<std::string, std::string>>; // key, value

std::string encode_record(std::string_view owner, std::string_view kind, const record_fields &fields);

// Null for any text that encode_record would not write, byte for byte.
std::optional<record_fields> decode_record(std::string_view owner, std::string_view kind,
                                           std::string_view text);
