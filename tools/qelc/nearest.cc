#include "tools/qelc/nearest.h"

#include <algorithm>

namespace {
// The optimal string alignment distance.
size_t distance(const std::string &one, const std::string &other)
{
    std::vector<std::vector<size_t>> steps(one.size() + 1, std::vector<size_t>(other.size() + 1));
    for (size_t i = 0; i <= one.size(); ++i) {
        for (size_t j = 0; j <= other.size(); ++j) {
            if (i == 0 || j == 0) {
                steps[i][j] = i + j;
                continue;
            }
            const size_t change = one[i - 1] == other[j - 1] ? 0 : 1;
            steps[i][j] = std::min({steps[i - 1][j] + 1, steps[i][j - 1] + 1, steps[i - 1][j - 1] + change});
            if (i > 1 && j > 1 && one[i - 1] == other[j - 2] && one[i - 2] == other[j - 1])
                steps[i][j] = std::min(steps[i][j], steps[i - 2][j - 2] + 1);
        }
    }
    return steps[one.size()][other.size()];
}
} // namespace

std::string nearest(const std::string &word, const std::vector<std::string> &known)
{
    constexpr size_t longest = 64; // nobody mistypes a longer word, and the work grows with its square
    const size_t most = word.size() < 3 ? 0 : word.size() < 6 ? 1 : 2;
    std::string best;
    size_t least = most + 1;
    for (const std::string &one : known) {
        if (word.size() > longest || one.size() > longest)
            continue;
        if (const size_t steps = distance(word, one); steps < least) {
            least = steps;
            best = one;
        }
    }
    return best;
}

std::string did_you_mean(const std::string &word, const std::vector<std::string> &known)
{
    const std::string near = nearest(word, known);
    return near.empty() ? "" : "; did you mean " + near + "?";
}
