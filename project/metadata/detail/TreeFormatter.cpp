#include "project/metadata/detail/TreeFormatter.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>

#include "host/XmlText.hpp"
#include "project/metadata/MetadataNodeSpecification.hpp"
#include "project/metadata/SharedNode.hpp"

namespace project::metadata::detail {

namespace {

/// In bytes.
constexpr std::size_t blockSize = 64 * 1024;

constexpr std::size_t indentation = 4;

bool isAscii(char16_t unit) {
    return unit > 0 && unit < 0x80;
}

/// What stands for `c` in an attribute's value, the same as libxml2's writers put; empty if it stands for itself.
constexpr std::string_view getEscape(char16_t c) {
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

constexpr auto standsForItself = [] {
    std::array<bool, 0x80> stands{};
    for (std::size_t c = 1; c < stands.size(); ++c)
        stands[c] = getEscape(static_cast<char16_t>(c)).empty();
    return stands;
}();

/// For a piece of text, before it goes to the others: that costs less than many calls, or bytes that are cleared first.
using Piece = std::array<char, 128>;

}  // namespace

void TreeFormatter::write(const MetadataNode& root, bool compactEnding) {
    bytes_ = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
    append(root, 0);
    if (!compactEnding)
        bytes_ += '\n';
    flush();
}

void TreeFormatter::write(const std::function<void(XmlSink& sink)>& tell, bool compactEnding) {
    bytes_ = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
    tell(*this);
    if (!compactEnding)
        bytes_ += '\n';
    flush();
}

void TreeFormatter::begin(const std::u16string& name) {
    beginChild();
    bytes_.append(open_.size() * indentation, ' ') += '<';
    needsProof_ = needsProof_ || isDoubtfulName(name);
    appendName(name);
    open_.push_back({&name, false});
}

void TreeFormatter::put(const std::u16string& key, const std::u16string& value) {
    attributes_.emplace_back(key, value);
}

void TreeFormatter::add(const std::shared_ptr<const MetadataNode>& node) {
    beginChild();
    append(*node, open_.size());
    bytes_ += '\n';
}

void TreeFormatter::end() {
    const Open ended = open_.back();
    open_.pop_back();
    if (ended.hasChildren) {
        bytes_.append(open_.size() * indentation, ' ') += "</";
        appendName(*ended.name);
        bytes_ += '>';
    } else {
        appendAttributes();
        bytes_ += "/>";
    }
    if (!open_.empty())
        bytes_ += '\n';
}

void TreeFormatter::appendAttributes() {
    const std::size_t begin = bytes_.size();
    std::sort(attributes_.begin(), attributes_.end());
    for (const auto& [key, value] : attributes_)
        appendAttribute(key, value);
    attributes_.clear();
    needsProof_ = needsProof_ || bytes_.size() - begin > longTag;
}

void TreeFormatter::beginChild() {
    if (bytes_.size() >= blockSize)
        flush();
    if (open_.empty() || open_.back().hasChildren)
        return;
    open_.back().hasChildren = true;
    appendAttributes();
    bytes_ += ">\n";
}

void TreeFormatter::appendAttribute(std::u16string_view key, std::u16string_view value) {
    bytes_ += ' ';
    needsProof_ = needsProof_ || isDoubtfulKey(key);
    appendName(key);
    bytes_ += "=\"";
    appendValue(value);
    bytes_ += '"';
}

/// Without the line break that ends the element.
void TreeFormatter::append(const MetadataNode& written, std::size_t depth) {
    const MetadataNode& node = getShared(written);
    if (bytes_.size() >= blockSize)
        flush();
    bytes_.append(depth * indentation, ' ') += '<';
    const std::size_t begin = bytes_.size();
    needsProof_ = needsProof_ || isDoubtfulName(node.getName());
    appendName(node.getName());
    visitAttributes(node, [this](const auto& key, const auto& value) { appendAttribute(key, value); });
    needsProof_ = needsProof_ || bytes_.size() - begin > longTag;
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
    Piece piece;
    while (!value.empty()) {
        const std::size_t size = std::min(value.size(), piece.size());
        std::size_t count = 0;
        for (; count < size && value[count] < standsForItself.size() && standsForItself[value[count]]; ++count)
            piece[count] = static_cast<char>(value[count]);
        bytes_.append(piece.data(), count);
        value.remove_prefix(count);
        if (count == size)
            continue;
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
    Piece piece;
    while (!text.empty()) {
        const std::size_t size = std::min(text.size(), piece.size());
        std::transform(text.begin(), text.begin() + size, piece.begin(),
                       [](char16_t unit) { return static_cast<char>(unit); });
        bytes_.append(piece.data(), size);
        text.remove_prefix(size);
    }
}

void TreeFormatter::flush() {
    out_.write(bytes_.data(), static_cast<std::streamsize>(bytes_.size()));
    bytes_.clear();
    if (!out_)
        throw WriteStopped{errno};
}

}  // namespace project::metadata::detail
