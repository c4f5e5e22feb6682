/// Writing files that are no metadata in a project: those that people name.
///
/// No function keeps state; calls for different files may run on different threads.
#pragma once

#include <functional>
#include <string_view>

#include "host/Path.hpp"

namespace operations {

/// What becomes of a file that is there already.
enum class Existing { keep, replace };

/// @throws OperationError if `file` cannot be written for what is there: anything but a regular file, or any file that
///         is kept. `writeFile` finds that out too, but cannot say it as well.
void requireWritable(const host::Path& file, Existing existing);

/// Makes what `write` writes to the file that it is given the content of `file`, in one step: `file` appears when it is
/// complete, and is as it was after an error. It keeps its permissions and its owner, as far as this process may. Where
/// it is a symbolic link, the file at its end is replaced; a device, a pipe or a folder never is.
/// @throws MetadataWriteFailure naming `file`; ReadOnlyMetadataFailure, FailedToMakeMetadataWritable; whatever else
///         `write` throws; host::InterruptedException
void writeFile(const host::Path& file, Existing existing, const std::function<void(const host::Path& staged)>& write);

/// As that, for a file with the bytes `content`, in place of what is there.
void replaceFile(const host::Path& file, std::string_view content);

/// Gives the new file `file` to the owner of its folder, if this process is the superuser's.
void giveToOwnerOfFolder(const host::Path& file);

}  // namespace operations
