/// What nodes of one kind have in common, in one file or in several, so that it is kept once.
///
/// Immutable once made: any number of threads may read it.
#pragma once

#include <memory>
#include <string>
#include <vector>

namespace project::metadata::detail {

struct NodeForm {
    std::u16string name;
    /// Ascending, each of them a valid key.
    std::vector<std::u16string> keys;
};

/// A form like `form` that nodes made on this thread have, or it itself. May be called from any thread.
std::shared_ptr<const NodeForm> shareForm(NodeForm form);

}  // namespace project::metadata::detail
