/// The order of siblings, kept in the siblings' own files: each has a rank, and they are ordered by their ranks
/// as texts.
///
/// A rank is a whole part and a fraction. The whole part is a letter "a" to "z", which stands for 1 to 26 digits, and
/// that many digits "0-9A-Za-z" (base 62, in ASCII order), so that "az" < "b00" and counting up never runs into a
/// neighbour; the fraction is any number of digits, the last of them not "0". There is always a rank between two
/// others, so nothing but a new sibling's own file needs to change when it is inserted.
///
/// The scheme follows what is known as fractional indexing. No function keeps state; all may be called from any thread.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace stores::fixed_path {

using Rank = std::u16string;

/// Whether `text` is a rank.
bool isRank(const std::u16string& text);

/// `count` ascending ranks that lie after `after`, or before all others if that is empty, and before `before`, or after
/// all others if that is empty. `after` must be less than `before`.
std::vector<Rank> makeRanks(const Rank& after, const Rank& before, std::size_t count);

/// The ranks with which siblings have the order in which they are listed, given those that they have now; those that
/// have none are new. As few as possible change, and some neighbours of these where new ranks would grow long.
std::vector<Rank> arrangeRanks(const std::vector<std::optional<Rank>>& current);

}  // namespace stores::fixed_path
