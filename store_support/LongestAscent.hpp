/// The longest ascent of a list: if what lies on it stays, the fewest others have to move to put the list in order.
#pragma once

#include <algorithm>
#include <cstddef>
#include <limits>
#include <optional>
#include <vector>

namespace store_support {

/// @param values what is missing is passed over
/// @return the indices, in ascending order, of a longest subsequence of `values` in which each is greater than the one
///         before. May be called from any thread.
template <class Value>
std::vector<std::size_t> findLongestAscent(const std::vector<std::optional<Value>>& values) {
    constexpr std::size_t none = std::numeric_limits<std::size_t>::max();
    std::vector<std::size_t> ends;  // of the ascent of each length that ends with the least value
    std::vector<std::size_t> before(values.size(), none);
    for (std::size_t i = 0; i < values.size(); ++i) {
        if (!values[i])
            continue;
        const auto place = std::lower_bound(ends.begin(), ends.end(), *values[i],
                                            [&](std::size_t end, const Value& value) { return *values[end] < value; });
        if (place != ends.begin())
            before[i] = *(place - 1);
        if (place == ends.end())
            ends.push_back(i);
        else
            *place = i;
    }
    std::vector<std::size_t> ascent;
    for (std::size_t i = ends.empty() ? none : ends.back(); i != none; i = before[i])
        ascent.push_back(i);
    std::reverse(ascent.begin(), ascent.end());
    return ascent;
}

}  // namespace store_support
