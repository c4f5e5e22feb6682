/// Metadata that is damaged, so that it cannot be replaced where it is: new metadata takes its place, and it stays.
///
/// Main thread only.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "operations/MetadataTree.hpp"
#include "operations/Progress.hpp"

namespace operations {

/// Whether the metadata of the project with the root folder `root` is damaged, or what is left without its core file.
/// What only cannot be had now, for a lack of rights or of a server, is not damaged.
/// @throws whatever comes of opening and reading the project, if that is not for damage; host::InterruptedException
bool isDamaged(const host::Path& root, Observer& observer);

struct RestoreRequest {
    std::optional<std::string> store;  ///< the kind of store; without, the one that the project is in
    std::vector<std::string> options;  ///< for that store, as `setOptions` takes them
    bool isDryRun = false;             ///< only say where the damaged folder would go
};

/// Makes a metadata folder that holds `content`, and exchanges it with the one of the project with the root folder
/// `root`, where `isDamaged` is true, in one step. The damaged folder stays as it is, under a name that nothing had:
/// its own and ".damaged", and a number from 2 if need be. Files in it that are certainly not the store's are copied to
/// the new one: all others if the store can be opened, otherwise those that name the project's UUID.
/// @return the damaged folder
/// @throws OperationError, and whatever else, if everything is as it was; host::InterruptedException likewise
host::Path restoreProject(const host::Path& root, const PathTree& content, const RestoreRequest& request,
                          Observer& observer);

}  // namespace operations
