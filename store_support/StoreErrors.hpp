/// How stores tell what is wrong. No function keeps state; all may be called from any thread.
#pragma once

#include <string>

#include "store_support/Library.hpp"

namespace store_support {

/// @param code an error number of the operating system
/// @throws MetadataWriteFailure naming `path` and the meaning of `code`
[[noreturn]] void raiseSystemError(const Path& path, int code);

/// Makes the existing `path`, or what that leads to if it is a symbolic link, writable if it is not and the user's
/// settings allow it.
/// @throws project::metadata::ReadOnlyMetadataFailure naming `path`, if it is still not writable then;
///         FailedToMakeMetadataWritable
void requireWritable(const Path& path);

/// @param code an error number of the operating system
/// @throws MetadataReadFailure naming `path` and the meaning of `code`
[[noreturn]] void raiseReadError(const Path& path, int code);

/// What is wrong with a file, for the `error` that came of reading it while the system did its part.
std::u16string getReadProblem(const MetadataReadFailure& error);

/// What is wrong with a file that holds `what`, which no store would write.
std::u16string describeLoss(const std::u16string& what);

/// Tells the library's sink of `damage`; without one, logs a warning.
void reportDamage(const MetadataDamage& damage);

}  // namespace store_support
