/// Forms the XML of a metadata tree.
///
/// One thread at a time may use an object.
#pragma once

#include <cstddef>
#include <functional>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "project/metadata/MetadataNode.hpp"
#include "project/metadata/MetadataXml.hpp"

namespace project::metadata::detail {

/// What may not read back as it was written is looked at well below the limits of libxml2: 50,000 bytes for a name,
/// 10,000,000 for a start tag, to which each unit of a text gives 6 at most.
constexpr std::size_t longName = 10'000;
constexpr std::size_t longTag = 1'000'000;

/// Whether a reader may refuse the name, or take it for one in a namespace.
inline bool isDoubtfulName(std::u16string_view name) {
    return name.size() > longName || name.find(u':') != std::u16string_view::npos;
}

/// The same for the key of an attribute.
inline bool isDoubtfulKey(std::u16string_view key) {
    return isDoubtfulName(key) || key == u"xmlns";
}

/// A block could not be written: nobody need tell more. No error that users see.
struct WriteStopped {
    int reason;  ///< an error number of the operating system
};

class TreeFormatter : private XmlSink {
public:
    /// @param out takes the bytes, block by block; the first failure is a `WriteStopped`
    explicit TreeFormatter(std::ostream& out) : out_(out) {}

    /// Writes a whole document. See `writeToFile`.
    void write(const MetadataNode& root, bool compactEnding);
    void write(const std::function<void(XmlSink& sink)>& tell, bool compactEnding);

    /// Whether what was written does, see `project::metadata::needsProof`.
    bool needsProof() const noexcept { return needsProof_; }

private:
    void begin(const std::u16string& name) override;
    void put(const std::u16string& key, const std::u16string& value) override;
    void add(const std::shared_ptr<const MetadataNode>& node) override;
    void end() override;

    /// Writes the attributes of the element that has just begun.
    void appendAttributes();

    /// Before a child of the element that was begun last.
    void beginChild();

    void append(const MetadataNode& node, std::size_t depth);
    void appendAttribute(std::u16string_view key, std::u16string_view value);
    void appendName(std::u16string_view name);
    void appendValue(std::u16string_view value);
    void appendAscii(std::u16string_view text);
    void flush();

    struct Open {
        const std::u16string* name;
        bool hasChildren;
    };

    std::ostream& out_;
    std::string bytes_;  ///< formed, but not yet written
    bool needsProof_ = false;
    // What was told of elements that have not ended:
    std::vector<Open> open_;
    std::vector<std::pair<std::u16string, std::u16string>> attributes_;  ///< of the last one, until it has a child
};

}  // namespace project::metadata::detail
