#include "operations/NodeMatch.hpp"
#include "store_support/EqualTrees.hpp"

#include <algorithm>
#include <cstdint>
#include <map>
#include <string>

namespace operations {

namespace {

/// A part of both lists, the ends not included.
struct Span {
    std::size_t beforeBegin, beforeEnd, afterBegin, afterEnd;
};

class Matcher {
public:
    Matcher(const Nodes& before, const Nodes& after) : before_(before), after_(after), match_(before.size()) {}

    std::vector<std::optional<std::size_t>> run() {
        Span middle{0, before_.size(), 0, after_.size()};
        while (isNotEmpty(middle) && areEqual(middle.beforeBegin, middle.afterBegin))
            match_[middle.beforeBegin++] = middle.afterBegin++;
        while (isNotEmpty(middle) && areEqual(middle.beforeEnd - 1, middle.afterEnd - 1))
            match_[--middle.beforeEnd] = --middle.afterEnd;
        matchEqual(middle);
        matchGaps(middle);
        return std::move(match_);
    }

private:
    static bool isNotEmpty(const Span& span) {
        return span.beforeBegin < span.beforeEnd && span.afterBegin < span.afterEnd;
    }

    bool areEqual(std::size_t before, std::size_t after) const {
        return store_support::equalTrees(*before_[before], *after_[after]);
    }

    /// The longest common subsequence. Where that would take too long, all nodes are left to their names.
    void matchEqual(const Span& span) {
        constexpr std::size_t limit = 4'000'000;
        const std::size_t rows = span.beforeEnd - span.beforeBegin;
        const std::size_t columns = span.afterEnd - span.afterBegin;
        if (!isNotEmpty(span) || rows > limit / columns)
            return;
        // The length that can be reached from each pair on; the row and the column at the end are 0.
        std::vector<std::uint32_t> lengths((rows + 1) * (columns + 1));
        std::vector<bool> equal(rows * columns);
        const auto length = [&](std::size_t row, std::size_t column) -> std::uint32_t& {
            return lengths[row * (columns + 1) + column];
        };
        for (std::size_t row = rows; row-- > 0;) {
            for (std::size_t column = columns; column-- > 0;) {
                const bool isEqual = areEqual(span.beforeBegin + row, span.afterBegin + column);
                equal[row * columns + column] = isEqual;
                length(row, column) = isEqual ? length(row + 1, column + 1) + 1
                                              : std::max(length(row + 1, column), length(row, column + 1));
            }
        }
        for (std::size_t row = 0, column = 0; row < rows && column < columns;) {
            if (equal[row * columns + column])
                match_[span.beforeBegin + row++] = span.afterBegin + column++;
            else if (length(row + 1, column) >= length(row, column + 1))
                ++row;
            else
                ++column;
        }
    }

    void matchGaps(const Span& span) {
        Span gap{span.beforeBegin, span.beforeBegin, span.afterBegin, span.afterBegin};
        for (; gap.beforeEnd < span.beforeEnd; ++gap.beforeEnd) {
            if (!match_[gap.beforeEnd])
                continue;
            gap.afterEnd = *match_[gap.beforeEnd];
            matchNames(gap);
            gap.beforeBegin = gap.beforeEnd + 1;
            gap.afterBegin = gap.afterEnd + 1;
        }
        gap.afterEnd = span.afterEnd;
        matchNames(gap);
    }

    void matchNames(const Span& gap) {
        std::map<std::u16string, std::vector<std::size_t>> unmatched;  // by name, the first one last
        for (std::size_t i = gap.afterEnd; i-- > gap.afterBegin;)
            unmatched[after_[i]->getName()].push_back(i);
        for (std::size_t i = gap.beforeBegin; i < gap.beforeEnd; ++i) {
            const auto found = unmatched.find(before_[i]->getName());
            if (found == unmatched.end() || found->second.empty())
                continue;
            match_[i] = found->second.back();
            found->second.pop_back();
        }
    }

    const Nodes& before_;
    const Nodes& after_;
    std::vector<std::optional<std::size_t>> match_;
};

}  // namespace

std::vector<std::optional<std::size_t>> matchNodes(const Nodes& before, const Nodes& after) {
    return Matcher(before, after).run();
}

}  // namespace operations
