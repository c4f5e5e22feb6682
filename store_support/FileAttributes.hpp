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

}  // namespace store_support
