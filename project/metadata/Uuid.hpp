/// UUIDs of projects. May be called from any thread.
#pragma once

#include <optional>
#include <string>

#include "host/Path.hpp"
#include "project/Export.hpp"

namespace project::metadata {

/// A new random UUID (RFC 4122, version 4) in its text form of 36 characters, in lower case.
/// @throws boost::uuids::entropy_error if the operating system gives no random bytes
PROJECT_METADATA_EXPORT std::u16string generateUUID();

/// Records a UUID for the project with the root folder `root`: writes the marker file "uuid-" + UUID + ".xml" into its
/// metadata folder. Other marker files stay.
///
/// @param uuid what to record, its form unchecked; empty for a new UUID
/// @return the marker file
/// @throws MetadataWriteFailure, ReadOnlyMetadataFailure and others as `writeToFile` and `getDirectory`
PROJECT_METADATA_EXPORT host::Path assignUuid(const host::Path& root, const std::u16string& uuid);

/// What stands for the UUID, its form unchecked, in the name of the marker file `file`; no value if it is none. Stores
/// may give their files such a name too: the root element of a marker is "uuid". A file that cannot be read is one if
/// its name holds a UUID.
PROJECT_METADATA_EXPORT std::optional<std::u16string> getMarkedUuid(const host::Path& file);

}  // namespace project::metadata
