/// What a scan remembers of the files that it has described, by which the next one knows those again that have got
/// another name. It is about one disk and one moment, so it lies where version control does not see it: in the user's
/// folder for states (XDG Base Directory rules), in a file for each project. Without it, files that have moved count as
/// new ones.
///
/// Main thread only.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "operations/FolderScan.hpp"
#include "operations/Library.hpp"

namespace operations {

class ScanRecord {
public:
    /// That of the project with the metadata folder `folder`. What is no record counts as none.
    explicit ScanRecord(const host::Path& folder);

    /// What is known of the file that `path` stands for; no value if nothing is.
    std::optional<FileTrace> find(const pm::MetadataPath& path);

    using Traces = std::vector<std::pair<pm::MetadataPath, FileTrace>>;

    /// Remembers `traces`, and what was known before of the other paths that are still of interest.
    /// @param isOfInterest asked for a key as `makeKey` makes it
    /// @throws MetadataWriteFailure; nothing if the user has no folder for states
    void keep(const Traces& traces, const std::function<bool(const std::u16string& key)>& isOfInterest);

    /// `path` as a text; that of another path is another, and begins with this one if it lies below.
    static std::u16string makeKey(const pm::MetadataPath& path);

private:
    void parse();

    host::Path file_;  // empty if there is no folder for states
    std::string heading_;
    std::string bytes_;  // of the file; empty if there is none
    std::optional<std::map<std::u16string, FileTrace>> traces_;
};

}  // namespace operations
