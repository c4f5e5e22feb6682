/// The order of siblings: who has moved, and which order agrees with two sides that have both changed it.
///
/// No function keeps state; all may be called from any thread. They take time in proportion to n log² n at most.
#pragma once

#include <cstddef>
#include <vector>

namespace operations {

using Numbers = std::vector<std::size_t>;

/// Stands for a sibling that is not there.
constexpr auto none = static_cast<std::size_t>(-1);

/// Which of `places`, all different but for `none`, must move so that the others ascend: as few as possible.
std::vector<bool> findMoved(const Numbers& places);

/// A sibling in one list, in another, or in both.
struct Aligned {
    std::size_t before, after;  ///< its places, or `none`
    bool isMoved;
};

/// All siblings of two lists: in the order of the list after, and what is only in the list before where it was.
/// @param partners for each place after, the place before or `none`; no place before twice
std::vector<Aligned> align(std::size_t beforeCount, const Numbers& partners);

struct MergedOrder {
    Numbers order;
    bool isConsistent;  ///< whether what both sides have done to the order could all be kept
};

/// The order of siblings that are known by numbers, given their order in the base and on both sides. All that is on
/// either side is in it.
///
/// Of two siblings that both sides have, the one comes first that is first on both sides; or, if the sides do not
/// agree, on the side that has changed it, or in `ours` if the base lacks one of them. Where that runs in a circle,
/// all that are part of the circle have the order of `ours`. What only one side has comes after what it follows there
/// and before what follows it, or at least after its neighbour where the other side has made that impossible.
MergedOrder mergeOrder(const Numbers& base, const Numbers& ours, const Numbers& theirs);

}  // namespace operations
