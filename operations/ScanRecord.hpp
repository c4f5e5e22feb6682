/// What a scan remembers of the files that it has described, by which the next one knows those again that have got
/// another name, and of the folders in which there was nothing to do, which the next one need not read again. It is
/// about one disk and one moment, so it lies where version control does not see it: in the user's folder for states
/// (XDG Base Directory rules), in a file for each project. Without it, files that have moved count as new ones.
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
    /// That of the project `root` with the metadata folder `folder`. What is no record counts as none.
    ScanRecord(const host::Path& root, const host::Path& folder);

    /// What is known of the file that `path` stands for; no value if nothing is.
    std::optional<FileTrace> find(const pm::MetadataPath& path);

    /// The fingerprint of the folder that `path` stands for, with what the metadata said of it, when there was nothing
    /// to do in it; empty if there was, or nothing is known.
    const std::string& findFingerprint(const pm::MetadataPath& path) const;

    using Traces = std::vector<std::pair<pm::MetadataPath, FileTrace>>;
    using Fingerprints = std::vector<std::pair<pm::MetadataPath, std::string>>;

    /// Remembers these, and what was known before of the other paths that are still of interest. Where that is anything
    /// new, what is remembered of projects that are gone is removed.
    /// @param isOfInterest asked for a key as `makeKey` makes it
    /// @throws MetadataWriteFailure; nothing if the user has no folder for states
    void keep(const Traces& traces, const Fingerprints& fingerprints,
              const std::function<bool(const std::u16string& key)>& isOfInterest);

    /// `path` as a text; that of another path is another, and begins with this one if it lies below.
    static std::u16string makeKey(const pm::MetadataPath& path);

private:
    void parseFingerprints();
    void parseTraces();

    host::Path file_;  // empty if there is no folder for states
    std::string heading_;
    std::string project_;          // what tells later whether the project is gone
    std::string bytes_;            // of the file; empty if there is none
    std::size_t tracesBegin_ = 0;  // in `bytes_`
    std::map<std::u16string, std::string> fingerprints_;
    std::optional<std::map<std::u16string, FileTrace>> traces_;  // read when they are first asked for
};

}  // namespace operations
