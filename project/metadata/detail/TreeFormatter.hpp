/// Forms the XML of a metadata tree.
///
/// One thread at a time may use an object.
#pragma once

#include <cstddef>
#include <ostream>
#include <string>
#include <string_view>

#include "project/metadata/MetadataNode.hpp"

namespace project::metadata::detail {

class TreeFormatter {
public:
    /// @param out takes the bytes, block by block; its state tells about failures
    explicit TreeFormatter(std::ostream& out) : out_(out) {}

    /// Writes a whole document. See `writeToFile`.
    void write(const MetadataNode& root, bool compactEnding);

private:
    void append(const MetadataNode& node, std::size_t depth);
    void appendName(std::u16string_view name);
    void appendValue(std::u16string_view value);
    void appendAscii(std::u16string_view text);
    void flush();

    std::ostream& out_;
    std::string bytes_;  ///< formed, but not yet written
};

}  // namespace project::metadata::detail
