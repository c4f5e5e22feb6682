/// Noticing that somebody else has changed files in a folder, or still may.
///
/// One thread at a time may use an object.
#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <string>

#include "store_support/FileVersion.hpp"

namespace operations {

/// All files in a folder with what changes when they do.
class FolderVersion {
public:
    /// @param leftOut files that do not count, relative to the folder
    /// @throws std::filesystem::filesystem_error if the folder cannot be looked through
    FolderVersion(const std::filesystem::path& folder, const std::set<std::string>& leftOut);

    /// The first file, relative to the folder, that `folder`, which may have been renamed, does not have now, or has in
    /// another version, or has besides.
    std::optional<std::string> findDifference(const std::filesystem::path& folder) const;

private:
    std::set<std::string> leftOut_;
    std::map<std::string, store_support::FileVersion> files_;  // which it keeps when the folder is renamed
};

/// The first file in `folder`, relative to it, that another program holds a lock on, as those do that have a database
/// open (fcntl(2)). This process must not have such a lock itself: it would lose it.
/// @throws std::filesystem::filesystem_error if the folder cannot be looked through
std::optional<std::string> findLockedFile(const std::filesystem::path& folder);

}  // namespace operations
