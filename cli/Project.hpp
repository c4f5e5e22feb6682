/// Projects as the command line names them.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "host/Path.hpp"
#include "project/metadata/MetadataDamage.hpp"
#include "project/metadata/MetadataManager.hpp"

namespace cli {

/// The root folder of the project that the current folder lies in: the nearest folder, from that one upwards, that
/// has metadata.
/// @throws CommandError with `Status::notAProject` if there is none
host::Path findRoot();

/// A path for an error sentence: its bytes, in quotes.
std::string quoted(const host::Path& path);

/// Whether `name`, as it stands on the command line, leads to a folder.
bool leadsToFolder(const std::string& name);

/// @throws CommandError with `Status::notAProject` unless `root` is a folder
void requireRoot(const host::Path& root);

/// As `requireRoot`, for a new project: what is not there can be made.
void requireNewRoot(const host::Path& root);

/// The core file of the project with the root folder `root`.
/// @throws CommandError with `Status::notAProject` if there is no such folder or no metadata in it
/// @throws MetadataReadFailure if that cannot be found out
host::Path requireCoreFile(const host::Path& root);

/// The store that holds the metadata of the project with the root folder `root`; never null.
/// @throws as `requireCoreFile`
/// @throws CommandError if there is no store for the type of metadata that the core file names, or if its files are too
///         damaged to be opened
/// @throws whatever the plug-ins throw
std::unique_ptr<project::metadata::MetadataManager> openProject(const host::Path& root);

/// @throws CommandError naming the nearest ancestor that exists, unless `path` is in `store`
/// @throws whatever the store throws
void requirePath(const project::metadata::MetadataManager& store, const project::metadata::MetadataPath& path);

/// What is damaged in `store`; nothing for a store that cannot tell.
/// @throws whatever the store throws
std::vector<project::metadata::MetadataDamage> findDamage(const project::metadata::MetadataManager& store);

/// The names of all stores that users may choose, for an error sentence.
std::string listStoreNames();

}  // namespace cli
