/// Nodes and differences as lines of text, as `diff`, `log`, `watch` and `textconv` print them. Safe to show. Main
/// thread only.
#pragma once

#include <cstddef>
#include <string>

#include "cli/text/Json.hpp"
#include "operations/TreeDiff.hpp"

namespace cli {

/// What a line says of what stands on it. In colour, the line is red, green, yellow or as usual.
enum class Sign : char { removed = '-', added = '+', changed = '~', none = ' ' };

/// `text` on a line, `level` levels deep.
std::string makeLine(Sign sign, std::size_t level, const std::string& text);

/// Such as `Size="12"`.
std::string makeAttribute(const std::u16string& key, const std::u16string& value);

/// Prints the name of `node`, and a level deeper its attributes and child nodes.
void printNode(Sign sign, std::size_t level, const pm::MetadataNode& node, std::size_t position = 0);

/// Prints the path of `diff`, `level` levels deep, and below it what is different.
void printDiff(const PathDiff& diff, std::size_t level = 0);

enum class DiffParts { name, all };

/// The members that docs/command.md lists; without those of the content for `DiffParts::name`.
Json toJson(const PathDiff& diff, DiffParts parts = DiffParts::all);

}  // namespace cli
