/// What a file takes over from the one whose place it takes, and a scratch folder from the folder that it is in.
///
/// No function keeps state; all may be called from any thread.
#pragma once

#include <sys/stat.h>

#include "host/Path.hpp"
#include "store_support/Disk.hpp"

namespace store_support {

/// Gives a new file what the one has that it is to replace: mode, owner, group, access list, and the attributes whose
/// names begin with "user.". Only the superuser can give a file away. To whomever it belongs otherwise, no program is
/// handed over that runs as its owner, and nobody may lose by that: it is an error if the group cannot be kept and has
/// other permissions than everybody, or if the old owner could not read or write the file any more.
///
/// @param made the new file, which nobody else has looked at
/// @param model what it is to replace, a regular file
/// @param old the status of that
/// @param file for errors
/// @throws project::metadata::MetadataWriteFailure naming `file` and the cause
void takeAttributes(const Descriptor& made, const host::Path& model, const struct stat& old, const host::Path& file);

/// Opens the scratch file or folder `made`, new and still empty, to all who may use the metadata folder `folder`,
/// whatever mask this process makes files with: who waits for a change looks into it, and who comes after a killed
/// process completes it. It is given the owner, the group, the access list and the mode of `folder`, as far as that
/// can be; a group that is not that of `folder` is let do what everybody may.
/// @throws project::metadata::MetadataWriteFailure naming `made`, if it cannot even be opened
void share(const host::Path& made, const host::Path& folder);

}  // namespace store_support
