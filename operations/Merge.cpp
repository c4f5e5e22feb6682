#include "operations/Merge.hpp"

#include <utility>

#include "operations/DryRun.hpp"
#include "operations/Errors.hpp"
#include "operations/MetadataTree.hpp"
#include "operations/Project.hpp"
#include "operations/StoreChange.hpp"
#include "operations/TreeDiff.hpp"
#include "operations/TreeMerge.hpp"

namespace operations {

std::vector<Conflict> mergeMetadata(const MergeRequest& request, Observer& observer) {
    const MetadataTree base = readTree(request.base, observer);
    const MetadataTree theirs = readTree(request.theirs, observer);
    const auto project = leadsToFolder(request.ours.accessName()) ? openProject(request.ours) : nullptr;
    if (project && request.output) {
        throw OperationError(ErrorKind::usage, "The result of merging into the project " + quoted(request.ours) +
                                                   " goes into the project, so -o cannot be given");
    }
    const MetadataTree ours = project ? readTree(*project, request.ours, observer) : readTree(request.ours, observer);
    MergeResult result = mergeTrees(base, ours, theirs);
    const auto progress = observer.start("Storing");
    if (project) {
        const StoreChange change = findChange(ours.root, result.tree.root);
        request.isDryRun ? requireFeasible(*project, request.ours, change) : applyChange(*project, change);
    } else if (request.output || !diffTrees(ours, result.tree).empty()) {
        const host::Path output = request.output.value_or(request.ours);
        request.isDryRun ? requireFeasibleOutput(output) : writeTree(result.tree, output);
    }
    return std::move(result.conflicts);
}

}  // namespace operations
