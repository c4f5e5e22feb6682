/// The metadata node in memory.
///
/// A tree is not synchronised: one thread at a time may use it.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "project/Export.hpp"
#include "project/metadata/MetadataNode.hpp"

namespace project::metadata {

namespace detail {
struct NodeForm;
class TreeBuilder;
class Values;
struct ValuesDeleter {
    void operator()(Values* values) const noexcept;
};
using AttributeVisitor = std::function<void(const std::u16string& key, const std::u16string& value)>;
PROJECT_METADATA_EXPORT void visitAttributes(const MetadataNode& visited, const AttributeVisitor& visit);
}  // namespace detail

/// The name of a node that was given none: "Info". May be called from any thread.
PROJECT_METADATA_EXPORT const std::u16string& getDefaultMetadataNodeName();

/// Every key it holds passed `isValidKey` and every value `isValidAttribute`. Names are not checked: whoever writes a
/// tree to a file sees to it that they are XML names.
class PROJECT_METADATA_EXPORT MetadataNodeSpecification : public MetadataNode {
public:
    /// A node with the default name.
    MetadataNodeSpecification();

    /// A node named `name`.
    explicit MetadataNodeSpecification(std::u16string name);

    /// A deep copy, independent of `other`: later changes of either do not show in the other.
    /// @throws PutMetadataKeyFailure, PutMetadataValueFailure if `other` holds what `put` refuses
    explicit MetadataNodeSpecification(const MetadataNode& other);
    MetadataNodeSpecification(const MetadataNodeSpecification& other);

    MetadataNodeSpecification& operator=(const MetadataNodeSpecification&) = delete;
    ~MetadataNodeSpecification() override;

    const std::u16string& get(std::u16string key) const override;
    void put(std::u16string key, std::u16string value) override;
    std::vector<std::u16string> getAttributeKeys() const override;
    const std::u16string& getName() const override;
    const std::vector<std::shared_ptr<MetadataNode>>& getChildNodes() const override;
    MetadataNode& createChildNode(std::u16string name) override;
    MetadataNode& createChildNode() override;
    void remove(const MetadataNode& node) override;
    void copy(const MetadataNode& source) override;

    /// The child nodes in order, which are this node's no more: for whoever makes something else of a tree, and has no
    /// room for both.
    std::vector<std::shared_ptr<MetadataNode>> takeChildNodes() noexcept { return std::exchange(children_, {}); }

private:
    friend class detail::TreeBuilder;
    friend void detail::visitAttributes(const MetadataNode& visited, const detail::AttributeVisitor& visit);

    using Attributes = std::map<std::u16string, std::u16string>;

    /// Makes the attributes those of `source`, which may be this node, none of them in the map. That takes less memory.
    void takeAttributes(const MetadataNodeSpecification& source);

    // Attributes lie in one of two places. Those that a node was read or copied with have their keys in the form, which
    // alike nodes of a file and copies share, and their values in an array of their own; the others are in a map. No
    // value is ever moved to another address.
    std::shared_ptr<const detail::NodeForm> form_;                   ///< never null
    std::unique_ptr<detail::Values, detail::ValuesDeleter> values_;  ///< of the form's keys; null if it has none
    std::unique_ptr<Attributes> rest_;                               ///< none of the form's keys; null until needed
    std::vector<std::shared_ptr<MetadataNode>> children_;
};

/// Calls `visit` with the key and the value of each attribute of `node`, as `getAttributeKeys` and `get` say them, in
/// that order; without copies if `node` is a `MetadataNodeSpecification` and no more, or shares what one says. `visit`
/// must not change `node`.
template <class Visit>
void visitAttributes(const MetadataNode& node, const Visit& visit) {
    detail::visitAttributes(node, std::cref(visit));
}

}  // namespace project::metadata
