/// A project's metadata in another kind of store, or in another folder.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "operations/Errors.hpp"
#include "operations/Library.hpp"
#include "operations/Progress.hpp"

namespace operations {

struct ConversionRequest {
    std::string store;                  ///< the name of the kind of store
    std::optional<std::string> folder;  ///< of the metadata, relative to the root folder; without, it stays
    std::vector<std::string> options;   ///< for that store, as `setOptions` takes them
    bool keep = false;                  ///< keep the old folder
    bool isDryRun = false;              ///< do everything elsewhere, and leave the project as it is
};

/// What was done.
struct Conversion {
    std::u16string before, after;  ///< the names of the kinds of store
    std::size_t pathCount;         ///< the root path does not count
    host::Path folder;             ///< of the metadata now
    host::Path oldFolder;          ///< where the old one is, if it is kept
};

/// The new store would not hold a path as the old one does, so nothing is converted.
class PathNotConverted : public OperationError {
public:
    explicit PathNotConverted(pm::MetadataPath path)
        : OperationError(ErrorKind::failure, "Not converted: a path would not stay as it is"), path_(std::move(path)) {}

    const pm::MetadataPath& path() const { return path_; }

private:
    pm::MetadataPath path_;
};

/// Converts the metadata of the project with the root folder `root`; docs/command.md says what other programs may do
/// meanwhile. The old folder gets the name of its kind of store appended, and is then removed unless it is to be kept.
/// @throws OperationError of the kind `foundProblems` if the project is converted, but the old folder stays; of other
///         kinds, and whatever else, if everything is as it was
/// @throws host::InterruptedException while everything is as it was
Conversion convertProject(const host::Path& root, const ConversionRequest& request, Observer& observer);

}  // namespace operations
