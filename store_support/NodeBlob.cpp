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

#include "project/exception/ProjectException.hpp"
#include "project/metadata/AttributeRules.hpp"
#include "project/metadata/MetadataNodeSpecification.hpp"
#include "store_support/TreeRules.hpp"

namespace store_support {

using project::metadata::MetadataNodeSpecification;
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

    std::u16string readText() {
        const std::size_t size = readCount();
        if (size > bytes_.size())
            fail();
        const std::string_view utf8 = bytes_.substr(0, size);
        if (isPlain(utf8)) {
            bytes_.remove_prefix(utf8.size());
            return {utf8.begin(), utf8.end()};
        }
        isProved_ = false;
        std::u16string text = fromUtf8(utf8);
        if (toUtf8(text) != utf8) {
            fail();
            return {};
        }
        bytes_.remove_prefix(utf8.size());
        return text;
    }

    /// The name of a node, or the key of an attribute.
    std::u16string readName() {
        std::u16string name = readText();
        isProved_ = isProved_ && name.find(u' ') == std::u16string::npos && project::metadata::isValidKey(name);
        return name;
    }

    /// Whether all that was read is such that `requireReadable` has nothing against it.
    bool isProved() const { return isProved_; }

    void fail() {
        failed_ = true;
        bytes_ = {};
    }

private:
    std::string_view bytes_;
    bool failed_ = false;
    bool isProved_ = true;
};

/// Reads what follows the name of `node`; null to read it only.
void fillNode(Reader& reader, MetadataNode* node, int depth) {
    if (depth >= maximumXmlDepth)
        return reader.fail();
    std::u16string last;
    for (std::size_t count = reader.readCount(); count > 0 && !reader.hasFailed(); --count) {
        std::u16string key = reader.readName();
        std::u16string value = reader.readText();
        if (key <= last)
            reader.fail();
        if (reader.hasFailed())
            return;
        last = key;
        if (node)
            node->put(std::move(key), std::move(value));
    }
    for (std::size_t count = reader.readCount(); count > 0 && !reader.hasFailed(); --count) {
        std::u16string name = reader.readName();
        fillNode(reader, node ? &node->createChildNode(std::move(name)) : nullptr, depth + 1);
    }
}

}  // namespace

std::string encodeNode(const MetadataNode& node) {
    std::string bytes;
    appendNode(bytes, node);
    return bytes;
}

std::unique_ptr<MetadataNode> decodeNode(std::string_view bytes) {
    Reader reader(bytes);
    auto node = std::make_unique<MetadataNodeSpecification>(reader.readName());
    try {
        fillNode(reader, node.get(), 0);
        if (reader.hasFailed() || !reader.isAtEnd())
            return nullptr;
        if (!reader.isProved())
            requireReadable(*node, 0, {});
        return node;
    } catch (const project::exception::ProjectException&) {
        return nullptr;  // a name, a key or a value that no store takes
    }
}

bool isNode(std::string_view bytes) {
    Reader reader(bytes);
    reader.readName();
    fillNode(reader, nullptr, 0);
    if (reader.hasFailed() || !reader.isAtEnd())
        return false;
    return reader.isProved() || decodeNode(bytes);
}

}  // namespace store_support
