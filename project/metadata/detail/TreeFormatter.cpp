#include "project/metadata/detail/TreeFormatter.hpp"

#include <algorithm>
#include <memory>
#include <utility>

#include "host/XmlText.hpp"

namespace project::metadata::detail {

namespace {

/// In bytes.
constexpr std::size_t blockSize = 64 * 1024;

constexpr std::size_t indentation = 4;

bool isAscii(char16_t unit) {
    return unit > 0 && unit < 0x80;
}

/// What stands for `c` in an attribute's value, the same as libxml2's writers put; empty if it stands for itself.
std::string_view getEscape(char16_t c) {
    switch (c) {
        case u'\t':
            return "&#9;";
        case u'\n':
            return "&#10;";
        case u'\r':
            return "&#13;";
        case u'"':
            return "&quot;";
        case u'&':
            return "&amp;";
        case u'<':
            return "&lt;";
        case u'>':
            return "&gt;";
        default:
            return {};
    }
}

}  // namespace

void TreeFormatter::write(const MetadataNode& root, bool compactEnding) {
    bytes_ = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
    append(root, 0);
    if (!compactEnding)
        bytes_ += '\n';
    flush();
}

/// Without the line break that ends the element.
void TreeFormatter::append(const MetadataNode& node, std::size_t depth) {
    if (bytes_.size() >= blockSize)
        flush();
    bytes_.append(depth * indentation, ' ') += '<';
    appendName(node.getName());
    for (std::u16string& key : node.getAttributeKeys()) {
        bytes_ += ' ';
        appendName(key);
        bytes_ += "=\"";
        appendValue(node.get(std::move(key)));
        bytes_ += '"';
    }
    if (node.getChildNodes().empty()) {
        bytes_ += "/>";
        return;
    }
    bytes_ += ">\n";
    for (const std::shared_ptr<MetadataNode>& child : node.getChildNodes()) {
        append(*child, depth + 1);
        bytes_ += '\n';
    }
    bytes_.append(depth * indentation, ' ') += "</";
    appendName(node.getName());
    bytes_ += '>';
}

void TreeFormatter::appendName(std::u16string_view name) {
    if (std::all_of(name.begin(), name.end(), isAscii))
        appendAscii(name);
    else
        bytes_ += reinterpret_cast<const char*>(host::XmlText(name).get());
}

void TreeFormatter::appendValue(std::u16string_view value) {
    const auto standsForItself = [](char16_t unit) { return isAscii(unit) && getEscape(unit).empty(); };
    while (!value.empty()) {
        const auto special = std::find_if_not(value.begin(), value.end(), standsForItself);
        const auto plainCount = static_cast<std::size_t>(special - value.begin());
        appendAscii(value.substr(0, plainCount));
        value.remove_prefix(plainCount);
        if (value.empty())
            return;
        if (isAscii(value.front())) {
            bytes_ += getEscape(value.front());
            value.remove_prefix(1);
            continue;
        }
        const auto foreignCount =
            static_cast<std::size_t>(std::find_if(value.begin(), value.end(), isAscii) - value.begin());
        bytes_ += reinterpret_cast<const char*>(host::XmlText(value.substr(0, foreignCount)).get());
        value.remove_prefix(foreignCount);
    }
}

void TreeFormatter::appendAscii(std::u16string_view text) {
    const std::size_t begin = bytes_.size();
    bytes_.resize(begin + text.size());
    std::transform(text.begin(), text.end(), bytes_.begin() + static_cast<std::ptrdiff_t>(begin),
                   [](char16_t unit) { return static_cast<char>(unit); });
}

void TreeFormatter::flush() {
    out_.write(bytes_.data(), static_cast<std::streamsize>(bytes_.size()));
    bytes_.clear();
}

}  // namespace project::metadata::detail
