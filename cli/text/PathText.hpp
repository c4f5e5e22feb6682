/// Metadata paths on the command line.
///
/// A path is written as its steps joined by "|", each as type, ":" and location: "Folder:src|File:main.c". The root
/// path is "/"; an empty text is no path. In a step, a backslash stands before what would be taken for something else:
/// `\|`, `\:` in a type and `\[` before it, `\\`; and what cannot be shown or typed is escaped as `escapeName` does:
/// `\t`, `\n`, `\r`, `\xNN`, `\uNNNN`, `\UNNNNNNNN`. A path can also be given as JSON:
/// [["Folder","src"],["File","main.c"]].
///
/// All functions may be called from any thread.
#pragma once

#include <string>

#include "project/metadata/MetadataManager.hpp"
#include "project/metadata/MetadataPath.hpp"

namespace cli {

/// The text of `path`, which `parsePath` turns back into the same path. Safe to show.
std::string formatPath(const project::metadata::MetadataPath& path);

/// The text of one step, as it stands in that of a path.
std::string formatElement(const project::metadata::PathElement& element);

/// The path that `text`, in bytes, names.
/// @throws CommandError with `Status::usage` saying what is wrong with it
project::metadata::MetadataPath parsePath(const std::string& text);

/// @throws CommandError naming the nearest ancestor that exists, unless `path` is in `store`
/// @throws whatever the store throws
void requirePath(const project::metadata::MetadataManager& store, const project::metadata::MetadataPath& path);

}  // namespace cli
