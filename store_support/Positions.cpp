#include "store_support/Positions.hpp"

#include "store_support/LongestAscent.hpp"

namespace store_support {

std::vector<std::int64_t> arrangePositions(const std::vector<std::optional<std::int64_t>>& now) {
    std::vector<std::int64_t> positions(now.size());
    std::size_t begin = 0;  // of those without a position
    std::vector<std::size_t> stops = store_support::findLongestAscent(now);
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

}  // namespace store_support
