/// The service by which a plug-in offers a kind of metadata store.
///
/// A plug-in registers its factory in the service framework under the interface id
/// "project::metadata::MetadataManagerFactory", the framework's default id of this type. A factory may be used by
/// several threads at once.
#pragma once

#include <memory>
#include <string>

#include "host/Path.hpp"
#include "project/Export.hpp"
#include "project/metadata/MetadataManager.hpp"

namespace project::metadata {

/// The order of the virtual operations is part of the binary interface: never reorder or insert, only append.
class PROJECT_METADATA_EXPORT MetadataManagerFactory {
public:
    virtual ~MetadataManagerFactory() = default;

    /// A store for the metadata of the project with the root folder `root`; a relative one is below the folder that is
    /// the current one now. Nothing is written before the first change.
    /// @throws MetadataReadFailure if the project's metadata is of another kind or cannot be read
    virtual std::unique_ptr<MetadataManager> createManager(const host::Path& root) = 0;

    /// Whether the project with the root folder `root` keeps its metadata in this kind of store.
    /// @throws MetadataReadFailure if the project's core file cannot be read
    virtual bool canManage(const host::Path& root) = 0;

    /// The name of this kind of store, a text of one line, told apart by case.
    virtual std::u16string getName() = 0;

    /// What this kind of store is good for, in one line for people.
    virtual std::u16string getDescription() = 0;

    /// Whether lists for users leave this factory out.
    virtual bool isHidden() const { return false; }

protected:
    MetadataManagerFactory() = default;
    MetadataManagerFactory(const MetadataManagerFactory&) = default;
    MetadataManagerFactory& operator=(const MetadataManagerFactory&) = default;
};

}  // namespace project::metadata
