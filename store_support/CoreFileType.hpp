/// Which kind of store a project is kept in, as its core file says. All functions may be called from any thread.
#pragma once

#include <string>

#include "store_support/Library.hpp"

namespace store_support {

/// The type of metadata that `coreFile` names; empty if it names none. A large file is not read to its end for that:
/// what is wrong with the rest shows when the store opens it.
/// @throws MetadataReadFailure naming the file and what is wrong with it
std::u16string readMetadataType(const Path& coreFile);

/// To be called by writers that hold the lock: while a project is open in one program, another may convert it, and a
/// store of the old kind must not write among the files of the new one.
/// @param folder the metadata folder; a core file that is missing or damaged is no obstacle here
/// @throws MetadataWriteFailure naming the core file, if it names another type than `type`;
///         MetadataReadFailure, if the system cannot read it
void requireMetadataType(const Path& folder, const std::u16string& type);

}  // namespace store_support
