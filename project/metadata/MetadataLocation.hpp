/// The interface that answers where a project's metadata lives.
#pragma once

#include "host/Path.hpp"
#include "project/Export.hpp"

namespace project::metadata {

/// The order of the virtual operations is part of the binary interface: never reorder or insert, only append.
class PROJECT_METADATA_EXPORT MetadataLocation {
public:
    virtual ~MetadataLocation() = default;

    /// The metadata folder, which need not exist.
    virtual host::Path getDirectory() const = 0;

    /// The core file, which need not exist.
    virtual host::Path getCoreFile() const = 0;

    /// Whether there is a core file.
    virtual bool hasCoreFile() const = 0;

protected:
    MetadataLocation() = default;
    MetadataLocation(const MetadataLocation&) = default;
    MetadataLocation& operator=(const MetadataLocation&) = default;
};

}  // namespace project::metadata
