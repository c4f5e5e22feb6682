/// Makes a metadata tree of XML that comes block by block, by libxml2's push parser. No document is kept in between.
///
/// One thread at a time may use an object.
#pragma once

#include <cstddef>
#include <exception>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include <libxml/parser.h>
#include <boost/container_hash/hash.hpp>

#include "project/metadata/MetadataNodeSpecification.hpp"
#include "project/metadata/detail/NodeForm.hpp"
#include "project/metadata/detail/NodeMemory.hpp"

namespace project::metadata::detail {

enum class Extent {
    wholeTree,
    /// The root with its attributes. What follows is not parsed.
    rootOnly
};

class TreeParser {
public:
    /// @throws std::bad_alloc
    explicit TreeParser(Extent extent);
    ~TreeParser();

    TreeParser(const TreeParser&) = delete;
    TreeParser& operator=(const TreeParser&) = delete;

    /// Goes on with the next block.
    /// @return whether there is use for more: not if the document is not well-formed, or what is wanted has been read
    /// @throws PutMetadataKeyFailure, PutMetadataValueFailure as `put` for the attributes in their order
    bool parse(std::string_view block);

    /// Ends the document. To be called once, as the last.
    /// @return the root; null if the document is not well-formed
    /// @throws as `parse`
    std::unique_ptr<MetadataNode> finish();

private:
    /// A kind of element: all with one name and the same attributes in the same order.
    struct Kind {
        std::shared_ptr<const NodeForm> form;
        std::vector<std::size_t> places;  ///< where the form has the key of each attribute
        bool isValid = false;             ///< whether all keys are valid
    };

    using Names = std::vector<const xmlChar*>;

    struct Attribute {
        const xmlChar* prefix;  ///< may be null
        const xmlChar* name;
        std::string_view value;
    };

    struct OpenNode {
        MetadataNodeSpecification* node;
        std::size_t firstChild;  ///< in children_
    };

    void startElement(const xmlChar* prefix, const xmlChar* name);
    void endElement();
    MetadataNodeSpecification& addNode();
    MemoryBlock* getBlock();
    const Kind& getKind(const xmlChar* prefix, const xmlChar* name);
    std::u16string getValue(std::string_view text) const;
    void parseBlock(std::string_view block, bool isLast);
    bool isDone() const { return extent_ == Extent::rootOnly && root_; }

    static void onStartElement(void* context, const xmlChar* name, const xmlChar* prefix, const xmlChar* uri,
                               int namespaceCount, const xmlChar** namespaces, int attributeCount, int defaultedCount,
                               const xmlChar** attributes);
    static void onEndElement(void* context, const xmlChar* name, const xmlChar* prefix, const xmlChar* uri);
    template <class Step>
    static void run(void* context, const Step& step);

    struct BlockReleaser {
        void operator()(MemoryBlock* block) const noexcept { block->release(); }
    };

    const Extent extent_;
    xmlParserCtxt* parser_;
    std::exception_ptr failure_;  ///< libxml2 must not see exceptions
    std::unique_ptr<MetadataNodeSpecification> root_;
    std::vector<OpenNode> open_;
    /// The children so far of all open nodes, those of inner nodes last: a node gets its own when they are complete,
    /// and then in a list that has just their number.
    std::vector<std::shared_ptr<MetadataNode>> children_;
    std::size_t partCount_ = 0;                          ///< how many times memory was asked for
    std::unique_ptr<MemoryBlock, BlockReleaser> block_;  ///< where new nodes and their values go
    /// By the prefixes and names, in turns. libxml2 keeps one copy of each in its dictionary, so the pointers tell.
    std::unordered_map<Names, Kind, boost::hash<Names>> kinds_;
    // Of the current element; kept for their memory.
    std::vector<Attribute> attributes_;
    Names names_;
};

}  // namespace project::metadata::detail
