/// Which files in a metadata folder are a store's.
///
/// No function keeps state; all may be called from any thread.
#pragma once

#include <vector>

#include "project/metadata/MetadataFiles.hpp"
#include "store_support/Library.hpp"

namespace store_support {

/// The answer of `StoreFileLister::listFiles` for a store in the metadata folder `folder`: what there is of `files`,
/// and besides the core file, the lock and what a change has in the scratch folder.
/// @throws project::metadata::ListChildFilesFailure, MetadataReadFailure
std::vector<project::metadata::StoreFile> listStoreFiles(const Path& folder,
                                                         std::vector<project::metadata::StoreFile> files);

}  // namespace store_support
