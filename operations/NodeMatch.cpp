#include "operations/NodeMatch.hpp"

#include <algorithm>
#include <array>
#include <functional>
#include <set>
#include <tuple>
#include <unordered_set>
#include <utility>

#include "store_support/EqualTrees.hpp"

namespace operations {

using project::metadata::MetadataNode;

namespace {

std::size_t mix(std::size_t hash, std::size_t more) {
    constexpr std::size_t golden = 0x9e3779b97f4a7c15U;
    return (hash ^ more) * golden + (hash >> 29U);
}

std::size_t hashNode(const MetadataNode& node) {
    const std::hash<std::u16string> hashText;
    std::size_t hash = hashText(node.getName());
    for (const std::u16string& key : node.getAttributeKeys())
        hash = mix(mix(hash, hashText(key)), hashText(node.get(key)));
    for (const auto& child : node.getChildNodes())
        hash = mix(hash, hashNode(*child));
    return mix(hash, node.getChildNodes().size());
}

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

bool isIdentity(const std::u16string& name) {
    static const std::size_t others = rankKey({});
    return rankKey(name) != others;
}

/// Whether one may have been made of the other by a change, and not put in its place.
bool haveCommon(const MetadataNode& a, const MetadataNode& b) {
    const auto isEmpty = [](const MetadataNode& node) {
        return node.getAttributeKeys().empty() && node.getChildNodes().empty();
    };
    const auto keys = a.getAttributeKeys();
    const auto otherKeys = b.getAttributeKeys();
    const auto isShared = [&](const std::u16string& key) {
        return std::binary_search(otherKeys.begin(), otherKeys.end(), key) && a.get(key) == b.get(key);
    };
    const auto& children = a.getChildNodes();
    const auto& others = b.getChildNodes();
    for (std::size_t i = 0; i < std::min(children.size(), others.size()); ++i) {
        if (store_support::equalTrees(*children[i], *others[i]))
            return true;
    }
    return isEmpty(a) || isEmpty(b) || std::any_of(keys.begin(), keys.end(), isShared);
}

}  // namespace

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

/// One pairing in the making.
class Matching {
public:
    Matching(const Siblings& siblings, std::size_t before, std::size_t after)
        : siblings_(siblings),
          beforeVersion_(before),
          afterVersion_(after),
          before_(siblings.versions_[before]),
          after_(siblings.versions_[after]),
          pairing_{Numbers(before_.size(), none), std::vector<bool>(before_.size(), true)},
          partners_(after_.size(), none) {}

    Pairing run() {
        for (const Siblings::Group& group : siblings_.groups_)
            pairIdentical(group);
        pairUniques();
        pairBetweenNeighbours();
        pairMoved();
        doubtRemoved();
        doubtAlike();
        return std::move(pairing_);
    }

private:
    using Key = Siblings::Key;

    void pair(std::size_t before, std::size_t after, bool isCertain) {
        pairing_.partners[before] = after;
        pairing_.isCertain[before] = isCertain;
        partners_[after] = before;
    }

    /// The one in `version` that has the same value as the one at `place` in `otherVersion`, each as the only one.
    std::size_t findPartner(const Key& key, std::size_t otherVersion, std::size_t place, std::size_t version) const {
        const std::u16string& value = siblings_.versions_[otherVersion][place].node->get(key.name);
        const auto own = key.values[otherVersion].find(value);
        const auto other = key.values[version].find(value);
        return own == key.values[otherVersion].end() || own->second == none || other == key.values[version].end()
                   ? none
                   : other->second;
    }

    void pairIdentical(const Siblings::Group& group) {
        const Numbers& places = group.places[beforeVersion_];
        if (group.keys.empty()) {
            if (group.isSingle && !places.empty() && !group.places[afterVersion_].empty())
                pair(places.front(), group.places[afterVersion_].front(), true);
            return;
        }
        for (const std::size_t place : places) {
            const std::size_t partner = findPartner(group.keys.front(), beforeVersion_, place, afterVersion_);
            const bool isCertain = std::none_of(group.keys.begin() + 1, group.keys.end(),
                                                [&](const Key& key) { return isContradicted(key, place, partner); });
            pairing_.isCertain[place] = isCertain;
            if (partner != none)
                pair(place, partner, isCertain);
        }
    }

    /// Whether the attribute `key` says something else than that `place` has become `partner`.
    bool isContradicted(const Key& key, std::size_t place, std::size_t partner) const {
        // One that may be an identity by chance must not have changed.
        if (partner != none && !isIdentity(key.name))
            return before_[place].node->get(key.name) != after_[partner].node->get(key.name);
        const std::size_t other = findPartner(key, beforeVersion_, place, afterVersion_);
        const std::size_t back = partner == none ? none : findPartner(key, afterVersion_, partner, beforeVersion_);
        return (other != none && other != partner) || (back != none && back != place);
    }

    bool isOpenBefore(std::size_t place) const {
        return pairing_.partners[place] == none && !siblings_.groups_[before_[place].name].isStrict;
    }
    bool isOpenAfter(std::size_t place) const {
        return partners_[place] == none && !siblings_.groups_[after_[place].name].isStrict;
    }

    void pairUniques() {
        constexpr std::size_t several = none - 1;
        Numbers inBefore(siblings_.contentCount_, none), inAfter(siblings_.contentCount_, none);
        for (std::size_t i = 0; i < before_.size(); ++i) {
            std::size_t& place = inBefore[before_[i].content];
            if (isOpenBefore(i))
                place = place == none ? i : several;
        }
        for (std::size_t i = 0; i < after_.size(); ++i) {
            std::size_t& place = inAfter[after_[i].content];
            if (isOpenAfter(i))
                place = place == none ? i : several;
        }
        for (std::size_t content = 0; content < siblings_.contentCount_; ++content) {
            if (inBefore[content] < several && inAfter[content] < several)
                pair(inBefore[content], inAfter[content], true);
        }
    }

    void pairBetweenNeighbours() {
        Numbers neighbours, places;  // those that are certain, and where they are after
        for (std::size_t i = 0; i < before_.size(); ++i) {
            if (pairing_.partners[i] == none || !pairing_.isCertain[i])
                continue;
            neighbours.push_back(i);
            places.push_back(pairing_.partners[i]);
        }
        const std::vector<bool> isMoved = findMoved(places);
        std::size_t nextBefore = 0, nextAfter = 0;
        for (std::size_t i = 0; i <= neighbours.size(); ++i) {
            if (i < neighbours.size() && isMoved[i])
                continue;
            const bool isEnd = i == neighbours.size();
            Numbers openBefore, openAfter;
            for (; nextBefore < (isEnd ? before_.size() : neighbours[i]); ++nextBefore) {
                if (isOpenBefore(nextBefore))
                    openBefore.push_back(nextBefore);
            }
            for (; nextAfter < (isEnd ? after_.size() : places[i]); ++nextAfter) {
                if (isOpenAfter(nextAfter))
                    openAfter.push_back(nextAfter);
            }
            if (!openBefore.empty())
                pairGap(openBefore, openAfter);
        }
    }

    /// Pairs what is between two neighbours.
    void pairGap(const Numbers& before, const Numbers& after) {
        const auto isEqual = [&](std::size_t i, std::size_t j) {
            return before_[before[i]].content == after_[after[j]].content;
        };
        std::size_t begin = 0, beforeEnd = before.size(), afterEnd = after.size();
        for (; begin < std::min(beforeEnd, afterEnd) && isEqual(begin, begin); ++begin)
            pair(before[begin], after[begin], true);
        for (; begin < std::min(beforeEnd, afterEnd) && isEqual(beforeEnd - 1, afterEnd - 1); --beforeEnd, --afterEnd)
            pair(before[beforeEnd - 1], after[afterEnd - 1], true);

        // Each with the one that is as manieth of its content, as many as can be without crossing.
        std::unordered_map<std::size_t, Numbers> waiting;  // places in `after` by content, the first one last
        for (std::size_t i = afterEnd; i-- > begin;)
            waiting[after_[after[i]].content].push_back(i);
        Numbers equalBefore, equalAfter;
        for (std::size_t i = begin; i < beforeEnd; ++i) {
            const auto found = waiting.find(before_[before[i]].content);
            if (found == waiting.end() || found->second.empty())
                continue;
            equalBefore.push_back(i);
            equalAfter.push_back(found->second.back());
            found->second.pop_back();
        }
        const std::vector<bool> isMoved = findMoved(equalAfter);
        std::size_t nextBefore = begin, nextAfter = begin;
        for (std::size_t i = 0; i <= equalBefore.size(); ++i) {
            if (i < equalBefore.size() && isMoved[i])
                continue;
            const bool isEnd = i == equalBefore.size();
            const std::size_t gapEnd = isEnd ? beforeEnd : equalBefore[i];
            const std::size_t gapAfterEnd = isEnd ? afterEnd : equalAfter[i];
            pairNames(Numbers(before.begin() + static_cast<std::ptrdiff_t>(nextBefore),
                              before.begin() + static_cast<std::ptrdiff_t>(gapEnd)),
                      Numbers(after.begin() + static_cast<std::ptrdiff_t>(nextAfter),
                              after.begin() + static_cast<std::ptrdiff_t>(gapAfterEnd)));
            if (isEnd)
                break;
            pair(before[equalBefore[i]], after[equalAfter[i]], true);
            nextBefore = gapEnd + 1;
            nextAfter = gapAfterEnd + 1;
        }
        doubtAlike(before, true);
    }

    /// Pairs those of one name in their order; if there is one on each side, that is certain.
    void pairNames(const Numbers& before, const Numbers& after) {
        std::unordered_map<std::size_t, std::pair<Numbers, Numbers>> byName;
        for (const std::size_t place : before)
            byName[before_[place].name].first.push_back(place);
        for (const std::size_t place : after)
            byName[after_[place].name].second.push_back(place);
        for (const auto& [name, places] : byName) {
            const auto& [here, there] = places;
            if (there.empty())
                continue;
            const bool isCertain = here.size() == 1 && there.size() == 1 && canBecome(here.front(), there.front());
            for (std::size_t i = 0; i < here.size(); ++i) {
                pairing_.isCertain[here[i]] = isCertain;
                if (i < there.size())
                    pair(here[i], there[i], isCertain);
            }
        }
    }

    bool canBecome(std::size_t before, std::size_t after) const {
        const MetadataNode& node = *before_[before].node;
        const MetadataNode& other = *after_[after].node;
        const auto& keys = siblings_.groups_[before_[before].name].keys;
        const bool isOther = std::any_of(keys.begin(), keys.end(), [&](const Key& key) {
            // One of them may have got an identity; whether it has got another one, or gone, is not to be seen.
            const bool isNew = isIdentity(key.name) && (node.get(key.name).empty() || other.get(key.name).empty());
            return !isNew && node.get(key.name) != other.get(key.name);
        });
        return !isOther && haveCommon(node, other);
    }

    /// Pairs equal ones that are left, between other neighbours.
    void pairMoved() {
        std::unordered_map<std::size_t, Numbers> waiting;  // by content, the first one last
        for (std::size_t i = after_.size(); i-- > 0;) {
            if (isOpenAfter(i))
                waiting[after_[i].content].push_back(i);
        }
        for (std::size_t i = 0; i < before_.size(); ++i) {
            const auto found = isOpenBefore(i) ? waiting.find(before_[i].content) : waiting.end();
            if (found == waiting.end() || found->second.empty())
                continue;
            pair(i, found->second.back(), false);
            found->second.pop_back();
        }
    }

    /// One that seems to be gone may have moved and changed, if one that seems to be new has anything of it.
    void doubtRemoved() {
        const auto listTraits = [](const Siblings::Child& child) {
            const std::hash<std::u16string> hashText;
            Numbers traits;
            for (const std::u16string& key : child.node->getAttributeKeys())
                traits.push_back(mix(mix(child.name, hashText(key)), hashText(child.node->get(key))));
            for (const auto& part : child.node->getChildNodes())
                traits.push_back(mix(child.name, hashNode(*part)));
            return traits;
        };
        std::unordered_set<std::size_t> added;
        for (std::size_t i = 0; i < after_.size(); ++i) {
            const std::size_t partner = partners_[i];
            const bool isUncertain =
                partner != none && !pairing_.isCertain[partner] && before_[partner].content != after_[i].content;
            if (isUncertain || isOpenAfter(i)) {
                const Numbers traits = listTraits(after_[i]);
                added.insert(traits.begin(), traits.end());
            }
        }
        for (std::size_t i = 0; i < before_.size() && !added.empty(); ++i) {
            if (!isOpenBefore(i))
                continue;
            const Numbers traits = listTraits(before_[i]);
            if (std::any_of(traits.begin(), traits.end(), [&](std::size_t trait) { return added.count(trait) != 0; }))
                pairing_.isCertain[i] = false;
        }
    }

    /// Of equal ones, one of which is gone or has become nobody knows what, it is not certain which.
    void doubtAlike(const Numbers& places, bool withNeighbours) {
        std::unordered_map<std::size_t, std::size_t> counts;  // by content
        std::unordered_set<std::size_t> doubted;
        for (const std::size_t place : places)
            ++counts[before_[place].content];
        for (const std::size_t place : places) {
            const std::size_t content = before_[place].content;
            if (counts[content] > 1 && (pairing_.partners[place] == none || !pairing_.isCertain[place]))
                doubted.insert(content);
        }
        for (const std::size_t place : places) {
            const std::size_t partner = pairing_.partners[place];
            const bool isChanged = partner != none && after_[partner].content != before_[place].content;
            if (doubted.count(before_[place].content) != 0 || (withNeighbours && isChanged && !doubted.empty()))
                pairing_.isCertain[place] = false;
        }
    }

    void doubtAlike() {
        Numbers places;
        for (std::size_t i = 0; i < before_.size(); ++i) {
            if (!siblings_.groups_[before_[i].name].isStrict)
                places.push_back(i);
        }
        doubtAlike(places, false);
    }

    const Siblings& siblings_;
    std::size_t beforeVersion_, afterVersion_;
    const std::vector<Siblings::Child>& before_;
    const std::vector<Siblings::Child>& after_;
    Pairing pairing_;
    Numbers partners_;  // by place after
};

Pairing Siblings::pair(std::size_t before, std::size_t after) const {
    return Matching(*this, before, after).run();
}

}  // namespace operations
