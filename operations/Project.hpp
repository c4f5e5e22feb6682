/// Finding and opening projects.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "operations/Library.hpp"
#include "project/metadata/MetadataDamage.hpp"

namespace operations {

/// Whether `name`, as it stands on the command line, leads to a folder.
bool leadsToFolder(const std::string& name);

/// Whether `name` leads to a file that is none of the other kinds.
bool isFile(const std::string& name);

/// The root folder of the project that `folder` lies in: the nearest one from there upwards that has metadata; no value
/// if there is none.
std::optional<host::Path> findProject(host::Path folder);

/// @throws OperationError with `ErrorKind::notAProject` unless `root` is a folder
void requireRoot(const host::Path& root);

/// As `requireRoot`, for a new project: what is not there can be made.
void requireNewRoot(const host::Path& root);

/// The core file of the project with the root folder `root`.
/// @throws OperationError with `ErrorKind::notAProject` if there is no such folder or no metadata in it
/// @throws MetadataReadFailure if that cannot be found out
host::Path requireCoreFile(const host::Path& root);

/// The type of metadata that the core file `file` names, no value if it names none. Unlike the library, which opens
/// whatever has the name, this waits for no pipe.
/// @throws MetadataReadFailure if the file cannot be read
std::optional<std::u16string> findType(const host::Path& file);

/// The store that holds the metadata of the project with the root folder `root`; never null.
/// @throws as `requireCoreFile`
/// @throws OperationError if there is no store for the type of metadata that the core file names, or if its files are
///         too damaged to be opened
/// @throws whatever the plug-ins throw
std::unique_ptr<pm::MetadataManager> openProject(const host::Path& root);

/// As `openProject`, for a look that disturbs nobody: null if a change is being made, or waits to be completed.
std::unique_ptr<pm::MetadataManager> openIdleProject(const host::Path& root);

/// What is damaged in `store` at `top` or below, and what may be; nothing for a store that cannot tell.
/// @throws whatever the store throws
std::vector<pm::MetadataDamage> findDamage(const pm::MetadataManager& store, const pm::MetadataPath& top = {});

/// Whether the system does not hand out `file`, which exists, or not now: then nothing says that it is damaged.
bool isOutOfReach(const host::Path& file);

/// The names of all stores that users may choose, for an error sentence.
std::string listStoreNames();

}  // namespace operations
