// What somebody may have meant with a mistyped word.
#pragma once

#include <string>
#include <vector>

// The known word that differs least from WORD, by letters left out, added, changed or swapped; "" if none is
// near.
std::string nearest(const std::string &word, const std::vector<std::string> &known);

// "; did you mean mirrors?"; "" if no known word is near.
std::string did_you_mean(const std::string &word, const std::vector<std::string> &known);
