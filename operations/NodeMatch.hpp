/// Which child node of one version of a node is which of another version.
///
/// Child nodes have no addresses. They are paired, always with one of the same name, by what they have:
///
/// 1. Identity: an attribute whose values tell the siblings of the name apart in all versions. Attributes that are made
///    for that ("Id", "Name", ..., in whatever case) go before others, and then the one whose values most siblings have
///    kept; where another such attribute says otherwise, the pair is not certain. If not all siblings have such an
///    attribute, or it is repeated, those that it does not pair are left to the steps that follow. The only sibling of
///    a name in all versions is identified by that.
/// 2. Being equal, for those of which there is one on each side.
/// 3. Unchanged neighbours: between those that are paired and have not moved, equal ones in their order, and then one
///    that is the only one of its name there on both sides, if the two have anything in common and no attribute
///    tells them apart.
/// 4. Position: what is left between the same neighbours, in its order. That is good enough to show a difference, but
///    not certain.
///
/// The literature knows step 2 and 3 as patience difference. They take time in proportion to n log n, and memory in
/// proportion to n, whatever the nodes are like.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "operations/SiblingOrder.hpp"
#include "project/metadata/MetadataNode.hpp"

namespace operations {

using Nodes = std::vector<std::shared_ptr<project::metadata::MetadataNode>>;

/// How the child nodes of two versions are paired, by the places of those before.
struct Pairing {
    Numbers partners;             ///< the places after, or `none`
    std::vector<bool> isCertain;  ///< false where it rests on position alone who its partner is, or that it has none
};

/// The child nodes of several versions of one node.
///
/// Any number of threads may use an object. It points into the nodes, which must outlive it and stay as they are.
class Siblings {
public:
    explicit Siblings(const std::vector<const Nodes*>& versions);

    Pairing pair(std::size_t before, std::size_t after) const;

    /// A number for what the child node at `place` is like: nodes are equal exactly if they have equal numbers.
    std::size_t contentOf(std::size_t version, std::size_t place) const { return versions_[version][place].content; }

    /// Whether siblings of its name are told apart by an attribute that is made for that, and all of them have.
    bool isIdentified(std::size_t version, std::size_t place) const {
        return groups_[versions_[version][place].name].isStrict;
    }

private:
    friend class Matching;

    struct Child {
        const project::metadata::MetadataNode* node;
        std::size_t name;  // as for the content
        std::size_t content;
    };

    /// The places of siblings by the value of an attribute in one version; `none` for those with a repeated value.
    using Values = std::unordered_map<std::u16string_view, std::size_t>;

    struct Key {
        std::u16string name;
        std::vector<Values> values;  // by version
        bool isEverywhere = true;    // whether all have it, each with a value of its own
    };

    /// Siblings of one name.
    struct Group {
        std::vector<Numbers> places;  // by version
        std::vector<Key> keys;        // the one that identifies first, then those that might contradict it
        bool isStrict = false;
        bool isSingle = true;  // in all versions
    };

    void findKeys(Group& group) const;
    Key readKey(const Group& group, const std::u16string& name) const;

    std::vector<std::vector<Child>> versions_;
    std::vector<Group> groups_;  // by name
    std::size_t contentCount_ = 0;
};

}  // namespace operations
