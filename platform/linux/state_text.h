// Texts in the state files of the libraries. A record is plain text: a line with its owner and kind, a line
// "KEY VALUE" for each field, and a line "end", by whose absence a torn file is told. There is one way only
// to write a record.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// Which bytes stand as they are, beside letters and digits; all others are written as %XX.
inline constexpr std::string_view plain_in_file_names = "-_";
inline constexpr std::string_view plain_in_words = "-_./:;+@=~()[]{}#!?*$&";
inline constexpr std::string_view plain_in_values = "-_./:;+@=~()[]{}#!?*$& ,";

std::string escaped(std::string_view text, std::string_view plain = plain_in_words);

using record_fields = std::vector<std::pair<std::string, std::string>>; // key, value

std::string encode_record(std::string_view owner, std::string_view kind, const record_fields &fields);

// Null for anything that encode_record would not have written, byte for byte.
std::optional<record_fields> decode_record(std::string_view owner, std::string_view kind,
                                           std::string_view text);
