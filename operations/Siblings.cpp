#include "operations/Siblings.hpp"

#include <algorithm>
#include <array>
#include <functional>
#include <set>
#include <tuple>
#include <utility>

#include <boost/container_hash/hash.hpp>

#include "store_support/EqualTrees.hpp"

namespace operations {

using pm::MetadataNode;

namespace {

/// A node by what it is like.
struct Content {
    const MetadataNode* node;
    std::size_t hash;

    bool operator==(const Content& other) const {
        return hash == other.hash && store_support::equalTrees(*node, *other.node);
    }
};

struct HashOfContent {
    std::size_t operator()(const Content& content) const { return content.hash; }
};

/// How well an attribute serves as an identity by its name; the last for those that are not made for that.
std::size_t rankKey(const std::u16string& name) {
    constexpr std::array<std::u16string_view, 5> identities{u"uuid", u"guid", u"id", u"key", u"name"};
    const auto isLetter = [](char16_t letter, char16_t small) {
        return letter == small || (letter >= u'A' && letter <= u'Z' && letter - u'A' + u'a' == small);
    };
    const auto found = std::find_if(identities.begin(), identities.end(), [&](std::u16string_view identity) {
        return std::equal(name.begin(), name.end(), identity.begin(), identity.end(), isLetter);
    });
    return static_cast<std::size_t>(found - identities.begin());
}

}  // namespace

std::size_t hashNode(const MetadataNode& node) {
    const std::hash<std::u16string> hashText;
    std::size_t hash = hashText(node.getName());
    for (const std::u16string& key : node.getAttributeKeys()) {
        boost::hash_combine(hash, hashText(key));
        boost::hash_combine(hash, hashText(node.get(key)));
    }
    for (const auto& child : node.getChildNodes())
        boost::hash_combine(hash, hashNode(*child));
    boost::hash_combine(hash, node.getChildNodes().size());
    return hash;
}

bool isIdentity(const std::u16string& name) {
    static const std::size_t others = rankKey({});
    return rankKey(name) != others;
}

Siblings::Siblings(const std::vector<const Nodes*>& versions) {
    std::unordered_map<Content, std::size_t, HashOfContent> contents;
    std::unordered_map<std::u16string_view, std::size_t> names;
    for (const Nodes* const nodes : versions) {
        std::vector<Child>& children = versions_.emplace_back();
        children.reserve(nodes->size());
        for (const auto& node : *nodes) {
            const std::size_t name = names.try_emplace(node->getName(), names.size()).first->second;
            const Content content{node.get(), hashNode(*node)};
            children.push_back({node.get(), name, contents.try_emplace(content, contents.size()).first->second});
            if (name == groups_.size())
                groups_.emplace_back().places.resize(versions.size());
            Numbers& places = groups_[name].places[versions_.size() - 1];
            places.push_back(children.size() - 1);
            groups_[name].isSingle = groups_[name].isSingle && places.size() == 1;
        }
    }
    contentCount_ = contents.size();
    for (Group& group : groups_)
        findKeys(group);
}

Siblings::Key Siblings::readKey(const Group& group, const std::u16string& name) const {
    Key key;
    key.name = name;
    key.values.resize(versions_.size());
    const bool isRequired = !isIdentity(name);
    for (std::size_t version = 0; version < versions_.size(); ++version) {
        Values& values = key.values[version];
        values.reserve(group.places[version].size());
        for (const std::size_t place : group.places[version]) {
            const std::u16string& value = versions_[version][place].node->get(name);
            if (!value.empty()) {
                const auto [entry, isNew] = values.try_emplace(value, place);
                if (isNew)
                    continue;
                entry->second = none;
            }
            key.isEverywhere = false;
            if (isRequired)
                return key;
        }
    }
    return key;
}

/// Finds the attributes that identify the siblings of a group.
void Siblings::findKeys(Group& group) const {
    std::set<std::u16string> names, identities;
    for (std::size_t version = 0; version < versions_.size(); ++version) {
        for (const std::size_t place : group.places[version]) {
            // What all have, the first one has.
            const bool isFirst = names.empty();
            for (std::u16string& name : versions_[version][place].node->getAttributeKeys()) {
                if (isIdentity(name))
                    identities.insert(std::move(name));
                else if (isFirst)
                    names.insert(std::move(name));
            }
        }
    }
    if (identities.empty() && group.isSingle)
        return;
    std::vector<std::tuple<std::size_t, std::size_t, Key>> keys;  // with how many it does not pair, and its rank
    for (const std::u16string& name : identities.empty() ? names : identities) {
        Key key = readKey(group, name);
        if (!key.isEverywhere && identities.empty())
            continue;
        std::size_t pairs = 0;
        for (std::size_t before = 0; before < versions_.size(); ++before) {
            for (std::size_t after = before + 1; after < versions_.size(); ++after) {
                for (const auto& [value, place] : key.values[before]) {
                    const auto partner = key.values[after].find(value);
                    if (place != none && partner != key.values[after].end() && partner->second != none)
                        ++pairs;
                }
            }
        }
        keys.emplace_back(none - pairs, rankKey(name), std::move(key));
    }
    std::stable_sort(keys.begin(), keys.end(), [](const auto& a, const auto& b) {
        return std::tie(std::get<0>(a), std::get<1>(a)) < std::tie(std::get<0>(b), std::get<1>(b));
    });
    for (auto& [unpaired, rank, key] : keys)
        group.keys.push_back(std::move(key));
    group.isStrict = !identities.empty() && group.keys.front().isEverywhere;
}

}  // namespace operations
