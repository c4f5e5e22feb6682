/// What nodes of one kind have in common, in one file or in several, so that it is kept once.
///
/// Immutable once made: any number of threads may read it.
#pragma once

#include <string>
#include <vector>

namespace project::metadata::detail {

struct NodeForm {
    std::u16string name;
    /// Ascending, each of them a valid key.
    std::vector<std::u16string> keys;
};

}  // namespace project::metadata::detail
