/// Positions for siblings that are to take a certain order, while as many as possible keep theirs.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

namespace store_support {

/// The distance of siblings that are added one after the other: others find room between them.
constexpr std::int64_t positionGap = std::int64_t{1} << 20;

/// Positions within this bound, either way, leave room for what is computed with them.
constexpr std::int64_t positionBound = std::int64_t{1} << 61;

/// @param now the present positions of the siblings in the order that they are to take; no value for new ones
/// @return ascending positions. Those of a longest ascending run of present ones stay, unless there is no room left
///         between them: then all are given out anew. May be called from any thread.
std::vector<std::int64_t> arrangePositions(const std::vector<std::optional<std::int64_t>>& now);

}  // namespace store_support
