/// What two people have made of one project, or of one file, as one.
#pragma once

#include <optional>
#include <vector>

#include "operations/NodeMerge.hpp"
#include "operations/Progress.hpp"

namespace operations {

/// What `readTree` reads: root folders of projects, or files.
struct MergeRequest {
    host::Path base;  ///< what both come from
    host::Path ours;  ///< becomes the result
    host::Path theirs;
    std::optional<host::Path> output;  ///< the file that becomes the result instead, unless `ours` is a project
    bool isDryRun = false;             ///< only find the conflicts
};

/// Merges. What is the same as before is not written.
/// @return the conflicts, each of which is marked in the result
/// @throws as `readTree`, `mergeTrees`, `writeTree` and `applyChange`
std::vector<Conflict> mergeMetadata(const MergeRequest& request, Observer& observer);

}  // namespace operations
