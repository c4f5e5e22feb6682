// The form of a node:
//
//     node   = text                      its name
//              count { text text }       its attributes: keys, in ascending order, and values
//              count { node }            its child nodes, in their order
//     text   = count bytes               in UTF-8; the count is that of the bytes
//     count  = 7 bits a byte, the lowest first; the highest bit is set in each byte but the last

#include "store_support/NodeBlob.hpp"

#include <algorithm>
#include <cstdint>
#include <utility>

#include "project/exception/ProjectException.hpp"
#include "project/metadata/AttributeRules.hpp"
#include "project/metadata/MetadataNodeSpecification.hpp"
#include "store_support/TreeRules.hpp"

namespace store_support {

using project::metadata::visitAttributes;

namespace {

void appendCount(std::string& bytes, std::size_t count) {
    for (; count > 0x7F; count >>= 7)
        bytes += static_cast<char>((count & 0x7F) | 0x80);
    bytes += static_cast<char>(count);
}

void appendText(std::string& bytes, const std::u16string& text) {
    const std::string utf8 = toUtf8(text);
    appendCount(bytes, utf8.size());
    bytes += utf8;
}

void appendNode(std::string& bytes, const MetadataNode& node) {
    appendText(bytes, node.getName());
    std::size_t count = 0;
    visitAttributes(node, [&](const auto& /*key*/, const auto& /*value*/) { ++count; });
    appendCount(bytes, count);
    visitAttributes(node, [&](const auto& key, const auto& value) {
        appendText(bytes, key);
        appendText(bytes, value);
    });
    appendCount(bytes, node.getChildNodes().size());
    for (const auto& child : node.getChildNodes())
        appendNode(bytes, *child);
}

/// Whether `bytes` are ASCII without control characters: each is a unit of the text, and XML keeps it.
bool isPlain(std::string_view bytes) {
    bool isPlain = true;
    for (const char byte : bytes)  // to the end: the compiler makes it many at once
        isPlain &= static_cast<unsigned char>(byte - 0x20) < 0x60;
    return isPlain;
}

/// Whether `bytes` are an XML name, of ASCII and without a prefix.
bool isPlainName(std::string_view bytes) {
    const auto isLetter = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_'; };
    const auto isInner = [&](char c) { return isLetter(c) || (c >= '0' && c <= '9') || c == '-' || c == '.'; };
    return !bytes.empty() && isLetter(bytes.front()) && std::all_of(bytes.begin(), bytes.end(), isInner);
}

/// Keys are in the order of their UTF-16 units.
bool isBefore(std::string_view a, std::string_view b) {
    return isPlain(a) && isPlain(b) ? a < b : fromUtf8(a) < fromUtf8(b);
}

/// Reads the form from its beginning. Once something was wrong, all counts are zero and all texts empty.
class Reader {
public:
    explicit Reader(std::string_view bytes) : bytes_(bytes) {}

    bool hasFailed() const { return failed_; }
    bool isAtEnd() const { return bytes_.empty(); }

    std::size_t readCount() {
        std::uint64_t count = 0;
        for (int shift = 0; shift < 63 && !bytes_.empty(); shift += 7) {
            const auto byte = static_cast<unsigned char>(bytes_.front());
            bytes_.remove_prefix(1);
            count |= std::uint64_t{byte & 0x7FU} << shift;
            if ((byte & 0x80) != 0)
                continue;
            if (byte == 0 && shift > 0)
                break;  // longer than it need be
            return count;
        }
        fail();
        return 0;
    }

    std::string_view readText() {
        const std::size_t size = readCount();
        if (size > bytes_.size())
            fail();
        const std::string_view text = bytes_.substr(0, size);
        if (!isPlain(text)) {
            const std::u16string units = fromUtf8(text);
            if (toUtf8(units) != text) {
                fail();
                return {};
            }
            hasValidTexts_ = hasValidTexts_ && project::metadata::isValidAttribute(units);
        }
        bytes_.remove_prefix(text.size());
        return text;
    }

    /// The name of a node, or the key of an attribute.
    std::string_view readName() {
        const std::string_view name = readText();
        hasPlainNames_ = hasPlainNames_ && isPlainName(name);
        if (name.find('\0') != std::string_view::npos)
            fail();
        return name;
    }

    /// Whether `requireReadable` has nothing against all names that were read.
    bool hasPlainNames() const { return hasPlainNames_; }

    /// Nor anybody against any value.
    bool isNodeForSure() const { return hasPlainNames_ && hasValidTexts_; }

    void fail() {
        failed_ = true;
        bytes_ = {};
    }

private:
    std::string_view bytes_;
    bool failed_ = false;
    bool hasPlainNames_ = true;
    bool hasValidTexts_ = true;
};

/// @param builder to make a node; null to read it only
void readNode(Reader& reader, project::metadata::NodeBuilder* builder, int depth) {
    const std::string_view name = reader.readName();
    if (depth >= maximumXmlDepth)
        return reader.fail();
    if (builder)
        builder->begin(name);
    std::string_view last;
    for (std::size_t count = reader.readCount(); count > 0 && !reader.hasFailed(); --count) {
        const std::string_view key = reader.readName();
        const std::string_view value = reader.readText();
        if (!isBefore(last, key))
            reader.fail();
        if (reader.hasFailed())
            return;
        last = key;
        if (builder)
            builder->put(key, value);
    }
    for (std::size_t count = reader.readCount(); count > 0 && !reader.hasFailed(); --count)
        readNode(reader, builder, depth + 1);
    if (builder && !reader.hasFailed())
        builder->end();
}

}  // namespace

std::string encodeNode(const MetadataNode& node) {
    std::string bytes;
    appendNode(bytes, node);
    return bytes;
}

std::unique_ptr<MetadataNode> NodeDecoder::decode(std::string_view bytes) {
    if (std::exchange(isBegun_, true))
        builder_.clear();
    Reader reader(bytes);
    try {
        readNode(reader, &builder_, 0);
        if (!reader.hasFailed() && reader.isAtEnd()) {
            auto node = builder_.take();
            isBegun_ = false;
            // A value that the builder takes, and that is the same in UTF-8, is one that XML keeps.
            if (!reader.hasPlainNames())
                requireReadable(*node, 0, {});
            return node;
        }
    } catch (const project::exception::ProjectException&) {
        // a name, a key or a value that no store takes
    }
    return nullptr;
}

bool isNode(std::string_view bytes) {
    Reader reader(bytes);
    readNode(reader, nullptr, 0);
    if (reader.hasFailed() || !reader.isAtEnd())
        return false;
    return reader.isNodeForSure() || NodeDecoder().decode(bytes);
}

}  // namespace store_support
