/// The child nodes of several versions of one node, side by side: by name, by content, and by the attributes that tell
/// those of one name apart.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "operations/Library.hpp"
#include "operations/SiblingOrder.hpp"

namespace operations {

using Nodes = std::vector<std::shared_ptr<pm::MetadataNode>>;

/// Equal trees have equal numbers.
std::size_t hashNode(const pm::MetadataNode& node);

/// Whether an attribute of this name is made to identify its node: "Id", "Name", ..., in whatever case.
bool isIdentity(const std::u16string& name);

/// Any number of threads may use an object. It points into the nodes, which must outlive it and stay as they are.
class Siblings {
public:
    struct Child {
        const pm::MetadataNode* node;
        std::size_t name;     ///< a number for it
        std::size_t content;  ///< a number for what it is like: nodes are equal exactly if they have equal numbers
    };

    /// The places of siblings by the value of an attribute in one version; `none` for those with a repeated value.
    using Values = std::unordered_map<std::u16string_view, std::size_t>;

    struct Key {
        std::u16string name;
        std::vector<Values> values;  ///< by version
        bool isEverywhere = true;    ///< whether all have it, each with a value of its own
    };

    /// Siblings of one name.
    struct Group {
        std::vector<Numbers> places;  ///< by version
        /// The one that identifies first, then those that might contradict it. Attributes that are made for that go
        /// before others, and then the one whose values most siblings have kept.
        std::vector<Key> keys;
        bool isStrict = false;  ///< whether the first key is made to identify, and all have it with values of their own
        bool isSingle = true;   ///< in all versions
    };

    explicit Siblings(const std::vector<const Nodes*>& versions);

    const std::vector<Child>& children(std::size_t version) const { return versions_[version]; }
    const std::vector<Group>& groups() const { return groups_; }
    const Group& groupOf(const Child& child) const { return groups_[child.name]; }

    /// All contents have numbers below this one.
    std::size_t contentCount() const { return contentCount_; }

private:
    void findKeys(Group& group) const;
    Key readKey(const Group& group, const std::u16string& name) const;

    std::vector<std::vector<Child>> versions_;
    std::vector<Group> groups_;  // by name
    std::size_t contentCount_ = 0;
};

}  // namespace operations
