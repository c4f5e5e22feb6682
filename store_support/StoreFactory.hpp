/// The factory service of a store plug-in, the same for each kind of store but for what it opens.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>

#include <cppmicroservices/BundleContext.h>

#include "project/metadata/FileJob.hpp"
#include "project/metadata/MetadataFiles.hpp"
#include "project/metadata/MetadataManagerFactory.hpp"
#include "store_support/Library.hpp"

namespace store_support {

/// Runs one job, through the `FileJobManager` that is registered as a service at that moment if there is one. May be
/// called from any thread.
using JobRunner = std::function<void(project::metadata::FileJob job)>;

/// A kind of store.
struct StoreKind {
    std::u16string name;         ///< also the "MetadataType" in its core files
    std::u16string description;  ///< one line for people

    /// Makes the store that keeps its files in the metadata folder `folder` and changes them through `runJob`.
    std::function<std::unique_ptr<project::metadata::MetadataManager>(const Path& folder, JobRunner runJob)> open;

    /// Whether the metadata folder `folder` holds content of this kind beside the core file: then it can be opened even
    /// though the core file is damaged. Null for a kind that has no such content.
    std::function<bool(const Path& folder)> hasContentIn = nullptr;

    /// Whether all content is in the core file. That is read as a whole when the store is opened, and need not be
    /// before, to find out whether it can be.
    bool isAllInCoreFile = false;

    /// How single files are read and written; null for a kind whose files say nothing by themselves.
    std::shared_ptr<const project::metadata::MetadataFileFormat> fileFormat = nullptr;
};

/// For `StoreKind::open`: makes a `Store` of the two.
template <class Store>
std::unique_ptr<project::metadata::MetadataManager> openStore(const Path& folder, JobRunner runJob) {
    return std::make_unique<Store>(folder, std::move(runJob));
}

/// The factory of stores of that kind, which is a `MetadataFileFormat` besides if the kind has one.
/// @param context where to look for a `FileJobManager`
std::shared_ptr<project::metadata::MetadataManagerFactory> makeStoreFactory(
    StoreKind kind, const cppmicroservices::BundleContext& context);

}  // namespace store_support
