/// The names of a "fixedPath" store's files; they are made here and nowhere else.
///
/// The name of a path element is its type, "=" and its location, so "Folder=src". In both texts a character that some
/// file system or shell takes amiss is written as "%" and two hexadecimal digits, or "%u" and four; a name that would
/// be too long is cut and ended with "=~" and a hash of the whole. So different elements have different names, every
/// name holds a "=", which sets it apart from "Project.xml" and other files, and none leaves its folder.
///
/// No function keeps state; all may be called from any thread.
#pragma once

#include <optional>
#include <string>

#include "stores/Names.hpp"

namespace stores::fixed_path {

/// How the names of files end; those of folders do not.
extern const std::u16string& nodeFileExtension;

/// The name of the folder that holds the files of the children of `element`.
std::u16string nodeFolderName(const PathElement& element);

/// The name of the file of `element`.
std::u16string nodeFileName(const PathElement& element);

/// The element whose folder is named `name`; no value if `name` was cut, or is none that `nodeFolderName` makes.
std::optional<PathElement> parseNodeFolderName(const std::u16string& name);

/// Whether `path` could be the file of a path element: by its name, and where a marker of the project's UUID could have
/// the same, by what is in the file.
bool isNodeFile(const Path& path);

/// The names that files of path elements have, in a metadata folder and below, as a pattern of gitattributes(5).
std::u16string nodeFilePattern();

/// Whether `path` could be the folder of a path element's children, by its name.
bool isNodeFolder(const Path& path);

}  // namespace stores::fixed_path
