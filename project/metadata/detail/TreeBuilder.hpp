/// Makes a metadata tree of the elements and attributes of a document, in the order in which a parser comes upon them.
///
/// One thread at a time may use an object.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include <libxml/xmlstring.h>
#include <boost/container_hash/hash.hpp>

#include "project/metadata/MetadataNodeSpecification.hpp"
#include "project/metadata/detail/NodeForm.hpp"
#include "project/metadata/detail/NodeMemory.hpp"

namespace project::metadata::detail {

/// A kind of element: all with one name and the same attributes in the same order.
struct ElementKind {
    std::shared_ptr<const NodeForm> form;
    std::vector<std::size_t> places;  ///< where the form has the key of each attribute
    bool isValid = false;             ///< whether all keys are valid
};

/// The kinds that were met so far, by the names of an element and its attributes, as one parser's dictionary has them.
using ElementNames = std::vector<const xmlChar*>;
using ElementKinds = std::unordered_map<ElementNames, ElementKind, boost::hash<ElementNames>>;

/// Names are given as the dictionary of one parser has them, which keeps one copy of each: equal names are equal
/// pointers, and stay valid as long as the builder.
class TreeBuilder {
public:
    /// Elements inside one another. Trees are walked and destroyed by recursion.
    static constexpr std::size_t maxDepth = 257;

    /// @param kinds of the same parser; outlives the builder
    explicit TreeBuilder(ElementKinds& kinds) : kinds_(kinds) {}

    TreeBuilder(const TreeBuilder&) = delete;
    TreeBuilder& operator=(const TreeBuilder&) = delete;

    /// Begins a node, which is the root or a child of the innermost that is open. Only while `getDepth()` is less than
    /// `maxDepth`, and not when the root has ended.
    void startElement(const xmlChar* name);

    /// Adds an attribute to the node begun last. `value` is UTF-8, in which what is no UTF-8 becomes U+FFFD.
    void addAttribute(const xmlChar* key, std::string_view value);

    /// To be called when all attributes have been added: gives them to the node. If one key comes again, the last value
    /// is kept.
    /// @throws PutMetadataKeyFailure, PutMetadataValueFailure as `put` for the attributes in their order
    void endAttributes();

    /// Ends the innermost node that is open.
    void endElement();

    /// How many nodes are open.
    std::size_t getDepth() const noexcept { return open_.size(); }

    /// The innermost node that is open.
    const MetadataNode& getOpenNode() const { return *open_.back().node; }

    bool hasRoot() const noexcept { return root_ != nullptr; }

    /// The tree. Nodes that are still open have no children. If there are none, the next tree may begin.
    std::unique_ptr<MetadataNode> takeRoot();

private:
    struct OpenNode {
        MetadataNodeSpecification* node;
        std::size_t firstChild;  ///< in children_
    };

    struct BlockReleaser {
        void operator()(MemoryBlock* block) const noexcept { block->release(); }
    };

    /// Where the nodes of one name and their values go. Nodes of one name are mostly kept or given up together: those
    /// that only frame others do not keep the memory of these, nor the other way round.
    struct Pool {
        std::size_t partCount = 0;  ///< how many times memory was asked for
        std::unique_ptr<MemoryBlock, BlockReleaser> block;
    };

    MetadataNodeSpecification& addNode();
    MemoryBlock* getBlock();
    const ElementKind& getKind();

    std::unique_ptr<MetadataNodeSpecification> root_;
    std::vector<OpenNode> open_;
    /// The children so far of all open nodes, those of inner nodes last: a node gets its own when they are complete,
    /// and then in a list that has just their number.
    std::vector<std::shared_ptr<MetadataNode>> children_;
    std::unordered_map<const xmlChar*, Pool> pools_;
    ElementKinds& kinds_;
    // Of the node begun last; the lists are kept for their memory.
    Pool* pool_ = nullptr;
    ElementNames names_;
    std::vector<std::u16string> values_;
    bool areValuesValid_ = true;
};

}  // namespace project::metadata::detail
