/// The core file "Project.xml" of a metadata folder, whose root node names the kind of store in "MetadataType".
///
/// Objects do not change and may be used from any thread; two calls that write one file must not overlap.
#pragma once

#include <string>

#include "host/Path.hpp"
#include "project/Export.hpp"

namespace project::metadata {

class PROJECT_METADATA_EXPORT CoreMetadataHandler {
public:
    /// @param folder the metadata folder
    /// @param metadataType the kind of store that the core file is to name
    /// @param rootNodeName the name of the root node in a core file that is written
    CoreMetadataHandler(const host::Path& folder, const std::u16string& metadataType,
                        const std::u16string& rootNodeName);

    /// The core file, whether it exists or not.
    host::Path getRootMetadataFile() const;

    /// Whether the core file exists and names this kind of store. False if that kind is the empty text.
    /// @throws MetadataReadFailure and others as `readFromFile`; also if the core file leads to a pipe, a socket or a
    ///         device, which is not opened; host::FileSystemException
    bool isCoreMetadataDefined() const;

    /// Writes a core file that holds nothing but the kind of store, replacing any that is there.
    /// @throws PutMetadataValueFailure for a kind that no attribute can hold; others as `writeToFile`;
    ///         MetadataWriteFailure also if the core file leads to a pipe, a socket or a device, which is not opened
    void createCoreMetadata() const;

    /// `createCoreMetadata` unless `isCoreMetadataDefined`. So a core file of another kind is overwritten.
    /// @throws as both
    void ensureCoreMetadataFileExists() const;

private:
    host::Path coreFile_;
    std::u16string metadataType_;
    std::u16string rootNodeName_;
};

}  // namespace project::metadata
