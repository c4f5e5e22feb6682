/// Nodes as lines of text, as `diff` and `textconv` print them. Safe to show. Main thread only.
#pragma once

#include <cstddef>
#include <string>

#include "cli/Names.hpp"
#include "project/metadata/MetadataNode.hpp"

namespace cli {

/// What a line says of what stands on it. In colour, the line is red, green, yellow or as usual.
enum class Sign : char { removed = '-', added = '+', changed = '~', none = ' ' };

/// `text` on a line, `level` levels deep.
std::string makeLine(Sign sign, std::size_t level, const std::string& text);

/// Such as `Size="12"`.
std::string makeAttribute(const std::u16string& key, const std::u16string& value);

/// Such as "node Info", or "node Info[2]" with the position 2.
std::string makeNodeName(const pm::MetadataNode& node, std::size_t position);

/// Prints the name of `node`, and a level deeper its attributes and child nodes.
void printNode(Sign sign, std::size_t level, const pm::MetadataNode& node, std::size_t position = 0);

}  // namespace cli
