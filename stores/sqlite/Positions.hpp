/// Positions for siblings that are to take a certain order, while as many as possible keep theirs.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

namespace stores::sqlite {

/// @param now the present positions of the siblings in the order that they are to take; no value for new ones
/// @return ascending positions. Those of a longest ascending run of present ones stay, unless there is no room left
///         between them: then all are given out anew. May be called from any thread.
std::vector<std::int64_t> arrangePositions(const std::vector<std::optional<std::int64_t>>& now);

}  // namespace stores::sqlite
