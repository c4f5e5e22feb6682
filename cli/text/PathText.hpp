/// Metadata paths, and addresses of nodes, on the command line.
///
/// A path is written as its steps joined by "|", each as type, ":" and location: "Folder:src|File:main.c". The root
/// path is "/"; an empty text is no path. An address goes on from there into the node, each step as "#", the name of
/// the child node, and if several have that name the position among these: "File:main.c#Review[2]#Comment".
///
/// In a step, a backslash stands before what would be taken for something else: `\|`, `\#`, `\:` in a type and `\[`
/// before it or in the name of a node, `\\`; and what cannot be shown or typed is escaped as `escapeName` does: `\t`,
/// `\n`, `\r`, `\xNN`, `\uNNNN`, `\UNNNNNNNN`. As JSON, an address is a list of steps such as
/// [["Folder","src"],["File","main.c"],["Review",2],["Comment"]].
///
/// All functions may be called from any thread.
#pragma once

#include <string>

#include "cli/Names.hpp"
#include "operations/NodeAddress.hpp"

namespace cli {

/// The text of `path`, which `parsePath` turns back into the same path. Safe to show.
std::string formatPath(const pm::MetadataPath& path);

/// The text of one step, as it stands in that of a path.
std::string formatElement(const pm::PathElement& element);

/// What stands behind the first ":" of that which is not escaped.
std::string formatLocation(const pm::PathElement& element);

/// The text of `address`, likewise for `parseAddress`.
std::string formatAddress(const NodeAddress& address);

/// The address that `text`, in bytes, is.
/// @throws CommandError with `Status::usage` saying what is wrong with it
NodeAddress parseAddress(const std::string& text);

/// As that, for one that has no steps into the node.
pm::MetadataPath parsePath(const std::string& text);

/// @throws MissingPath naming the nearest ancestor that exists, unless `path` is in `store`
/// @throws whatever the store throws
void requirePath(const pm::MetadataManager& store, const pm::MetadataPath& path);

}  // namespace cli
