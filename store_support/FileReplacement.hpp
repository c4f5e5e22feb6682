/// Replacing a file in one step.
///
/// No function keeps state; calls for different files may run on different threads.
#pragma once

#include <functional>
#include <string_view>

#include "store_support/Library.hpp"

namespace store_support {

/// Writes the new content to the empty file `staged`, which may be replaced too.
using FileWriter = std::function<void(const Path& staged)>;

/// Makes what `write` writes the content of `file`: under a fresh name beside it first, then flushed, and renamed. So
/// the file has its old content or its new one at any moment, and others find no part of it. It keeps its permissions
/// and what else belongs to it, as by `takeAttributes` (FileAttributes.hpp); another name of the same file keeps the
/// old content. Where `file` is a symbolic link, the file at its end is replaced or made; where it is anything but a
/// regular file, nothing is. Its folder must exist.
///
/// After an error all is as it was, unless it was the folder that could not be flushed: then the content is the new
/// one, and a crash may bring the old one back.
///
/// @throws MetadataWriteFailure naming `file` and the cause, also for such an error of `write`;
///         ReadOnlyMetadataFailure, FailedToMakeMetadataWritable as `requireWritable`; host::InterruptedException;
///         whatever else `write` throws
void replaceFile(const Path& file, const FileWriter& write);

/// As that, for a file with the bytes `content`.
void replaceFile(const Path& file, std::string_view content);

/// As that, for a file that must not be there yet, not even as a link that leads nowhere.
void makeFile(const Path& file, const FileWriter& write);

/// Calls `write`, whose errors that name the file `staged` then name `file`, which it is to become.
/// @throws MetadataWriteFailure naming `file`, for such an error; whatever else `write` throws
void writeStaged(const FileWriter& write, const Path& staged, const Path& file);

}  // namespace store_support
