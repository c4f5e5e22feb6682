/// A metadata folder that is made anew beside another one, to take its place.
///
/// No function keeps state; all are for the main thread.
#pragma once

#include <filesystem>
#include <set>
#include <string>

#include "operations/Library.hpp"
#include "operations/Progress.hpp"

namespace operations {

/// The names of the store's files in a metadata folder, relative to it.
struct OwnFiles {
    std::set<std::string> all;        ///< none if the store cannot tell
    std::set<std::string> transient;  ///< come and go while programs are at work, and hold no content
};

/// What `store`, that of the project with the root folder `root`, tells of its files.
/// @throws OperationError if it takes a file for its own that lies elsewhere; whatever the store throws
OwnFiles listOwnFiles(const host::Path& root, const pm::MetadataManager& store);

/// Copies to the metadata folder `target` what lies in `folder` and is not the store's, and gives it the permissions
/// of `folder`.
/// @throws std::filesystem::filesystem_error; as `store_support::makeFolderOfOwner`
void copyForeignFiles(const std::filesystem::path& folder, const OwnFiles& own, const std::filesystem::path& target,
                      Observer& observer);

/// Gives each of two folders the name of the other in one step.
/// @return whether the file system can do that and has done it
/// @throws MetadataWriteFailure naming `b`
bool exchangeFolders(const std::filesystem::path& a, const std::filesystem::path& b);

/// As a `host::Path`.
host::Path toPath(const std::filesystem::path& path);

}  // namespace operations
