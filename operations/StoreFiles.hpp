/// Which files in a metadata folder are the store's, by their names.
///
/// Keeps no state; may be called from any thread.
#pragma once

#include <optional>
#include <string>

namespace operations {

/// What is known of the files of a kind of store.
struct StoreFiles {
    /// Whether the store makes the file `name`, relative to the metadata folder, besides the core file. Of a project
    /// without damage, every file for which it says so is the store's.
    bool (*isOwn)(const std::u16string& name);

    bool hasOnePerPath;  ///< whether every path but the root path has one such file
};

/// @return no value for a kind of store that is not known here
std::optional<StoreFiles> getStoreFiles(const std::u16string& type);

}  // namespace operations
