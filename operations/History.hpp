/// Who changed what in a project's metadata, from the history of the git repository that it is in.
///
/// Main thread only.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "operations/Library.hpp"
#include "operations/Progress.hpp"
#include "operations/TreeDiff.hpp"

namespace operations {

/// A commit. The texts are bytes as git has them.
struct Revision {
    std::string commit;  ///< its full name
    std::vector<std::string> parents;
    std::string author;
    std::string email;
    std::string time;  ///< by the author, as in ISO 8601
    std::string subject;
};

struct HistoryRequest {
    pm::MetadataPath path;
    bool below = false;                 ///< what is below the path, too
    std::optional<std::u16string> key;  ///< only differences of this attribute of the node of a path
};

/// Calls `visit` for each commit in which the path changed, the newest first, with what is different from the commit
/// before; for a merge, those from the first of these at paths that are different from all of them. The differences are
/// gone after the call. The history is that of the commit that is checked out.
/// @param visit returns whether it wants to see more
/// @return the commits in which the metadata could not be read, so that it is unknown what they or the next one changed
/// @throws OperationError if the project is in no git repository, or git fails; host::InterruptedException
std::vector<Revision> walkHistory(const host::Path& root, const HistoryRequest& request,
                                  const std::function<bool(const Revision&, const std::vector<PathDiff>&)>& visit,
                                  Observer& observer);

}  // namespace operations
