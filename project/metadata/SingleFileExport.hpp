/// Exporting a project's metadata, in whatever store it is kept, into one file.
#pragma once

#include <memory>

#include "host/Path.hpp"
#include "project/Export.hpp"
#include "project/metadata/MetadataManagerFactory.hpp"

namespace project::metadata {

/// Writes the metadata of the project with the root folder `from`, which is only read, to the new file `to`: all that
/// `copyMetadata` hands on, so neither the node of the root path nor, of several paths with one text, the nodes of any
/// but the first.
///
/// The work is done in a scratch folder by the store "monolithic" and the finished file then copied, so an error before
/// the copying leaves `to` alone; an existing `to` is not replaced where the host's `copy_file` refuses to. The scratch
/// folder is removed on every way out. May be called from any thread, as far as the stores allow.
///
/// @throws MetadataWriteFailure if there is no store "monolithic", it cannot be opened, or has not written its file
/// @throws MetadataReadFailure if no store recognises `from`, or the one that does cannot be opened
/// @throws host::FileSystemException if the scratch folder cannot be made or the file not copied
/// @throws whatever the stores throw
PROJECT_METADATA_EXPORT void writeMetadataToSingleFile(const host::Path& from, const host::Path& to);

/// The store that `writeMetadataToSingleFile` uses: one that keeps all metadata of a project in the core file, so that
/// this file by itself holds them. Null if there is none. May be called from any thread.
PROJECT_METADATA_EXPORT std::shared_ptr<MetadataManagerFactory> getSingleFileFactory();

}  // namespace project::metadata
