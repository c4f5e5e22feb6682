/// Changes of several batches that are made as a whole, or taken back.
///
/// One thread at a time, as the stores.
#pragma once

#include <functional>

#include "operations/Library.hpp"
#include "operations/StoreChange.hpp"

namespace operations {

/// Makes `change` as `applyChange` does, with the batch that says which paths there are as the last. If a batch fails,
/// what those before it have done is taken back.
/// @param nodeBefore the node that a path of `change.updated` has had; null for none
/// @throws whatever the store throws, if everything is as it was
/// @throws OperationError with the reason nested in it, if not: it says that all has been done in spite of the error,
///         or which paths are not as they were
void applyOrTakeBack(pm::MetadataManager& store, const StoreChange& change,
                     const std::function<NodePtr(const pm::MetadataPath&)>& nodeBefore);

}  // namespace operations
