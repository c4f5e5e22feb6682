#include "stores/sqlite/Positions.hpp"

#include <algorithm>
#include <limits>

#include "stores/sqlite/PathTable.hpp"

namespace stores::sqlite {

namespace {

constexpr std::size_t none = std::numeric_limits<std::size_t>::max();

/// The indices of a longest ascending run of the values in `now`, which need not be neighbours.
std::vector<std::size_t> findLongestRun(const std::vector<std::optional<std::int64_t>>& now) {
    std::vector<std::size_t> ends;  // of the run of each length that ends with the lowest value
    std::vector<std::size_t> before(now.size(), none);
    for (std::size_t i = 0; i < now.size(); ++i) {
        if (!now[i])
            continue;
        const auto place = std::lower_bound(ends.begin(), ends.end(), *now[i],
                                            [&](std::size_t end, std::int64_t value) { return *now[end] < value; });
        if (place != ends.begin())
            before[i] = *std::prev(place);
        if (place == ends.end())
            ends.push_back(i);
        else
            *place = i;
    }
    std::vector<std::size_t> run;
    for (std::size_t i = ends.empty() ? none : ends.back(); i != none; i = before[i])
        run.push_back(i);
    std::reverse(run.begin(), run.end());
    return run;
}

}  // namespace

std::vector<std::int64_t> arrangePositions(const std::vector<std::optional<std::int64_t>>& now) {
    std::vector<std::int64_t> positions(now.size());
    std::size_t begin = 0;  // of those without a position
    std::vector<std::size_t> stops = findLongestRun(now);
    stops.push_back(now.size());
    for (const std::size_t stop : stops) {
        const auto missing = static_cast<std::int64_t>(stop - begin);
        std::int64_t gap = positionGap;
        std::int64_t position = 0;
        if (begin > 0)
            position = positions[begin - 1];
        else if (stop < now.size())
            position = *now[stop] - gap * (missing + 1);
        if (begin > 0 && stop < now.size())
            gap = (*now[stop] - position) / (missing + 1);
        if (gap == 0)
            return arrangePositions(std::vector<std::optional<std::int64_t>>(now.size()));
        for (; begin < stop; ++begin)
            positions[begin] = position += gap;
        if (stop < now.size())
            positions[begin++] = *now[stop];
    }
    return positions;
}

}  // namespace stores::sqlite
