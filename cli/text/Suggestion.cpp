#include "cli/text/Suggestion.hpp"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <utility>

namespace cli {

namespace {

char toLower(char byte) {
    return static_cast<char>(std::tolower(static_cast<unsigned char>(byte)));
}

/// How many bytes must be put in, taken out, replaced or exchanged with the next to make one of the other, in whatever
/// case: the distance of Damerau and Levenshtein, in its form that changes no place twice.
/// @return `limit` if it is as much or more
std::size_t measure(const std::string& a, const std::string& b, std::size_t limit) {
    if (std::max(a.size(), b.size()) - std::min(a.size(), b.size()) >= limit)
        return limit;
    std::vector<std::size_t> before, row(b.size() + 1), twoBefore;
    for (std::size_t j = 0; j <= b.size(); ++j)
        row[j] = j;
    for (std::size_t i = 1; i <= a.size(); ++i) {
        twoBefore = std::exchange(before, row);
        row[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const auto isSame = [&](std::size_t x, std::size_t y) { return toLower(a[x - 1]) == toLower(b[y - 1]); };
            row[j] = std::min({before[j] + 1, row[j - 1] + 1, before[j - 1] + (isSame(i, j) ? 0U : 1U)});
            if (i > 1 && j > 1 && isSame(i, j - 1) && isSame(i - 1, j))
                row[j] = std::min(row[j], twoBefore[j - 2] + 1);
        }
    }
    return std::min(row.back(), limit);
}

}  // namespace

std::string suggest(const std::string& word, const std::vector<std::string>& candidates) {
    std::size_t nearest = word.size() / 3 + 2;
    const std::string* found = nullptr;
    for (const std::string& candidate : candidates) {
        const std::size_t distance = measure(word, candidate, nearest);
        if (distance >= nearest)
            continue;
        nearest = distance;
        found = &candidate;
    }
    return found ? "; did you mean \"" + *found + "\"?" : "";
}

}  // namespace cli
