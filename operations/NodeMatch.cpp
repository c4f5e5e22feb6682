#include "operations/NodeMatch.hpp"

#include <algorithm>
#include <functional>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include <boost/container_hash/hash.hpp>

#include "store_support/EqualTrees.hpp"

namespace operations {

using pm::MetadataNode;

namespace {

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

/// One pairing in the making.
class Matching {
public:
    Matching(const Siblings& siblings, std::size_t before, std::size_t after)
        : siblings_(siblings),
          beforeVersion_(before),
          afterVersion_(after),
          before_(siblings.children(before)),
          after_(siblings.children(after)),
          pairing_{Numbers(before_.size(), none), std::vector<bool>(before_.size(), true)},
          partners_(after_.size(), none) {}

    Pairing run() {
        for (const Siblings::Group& group : siblings_.groups())
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
        const std::u16string& value = siblings_.children(otherVersion)[place].node->get(key.name);
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
        return pairing_.partners[place] == none && !siblings_.groupOf(before_[place]).isStrict;
    }
    bool isOpenAfter(std::size_t place) const {
        return partners_[place] == none && !siblings_.groupOf(after_[place]).isStrict;
    }

    void pairUniques() {
        constexpr std::size_t several = none - 1;
        Numbers inBefore(siblings_.contentCount(), none), inAfter(siblings_.contentCount(), none);
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
        for (std::size_t content = 0; content < siblings_.contentCount(); ++content) {
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
        const auto& keys = siblings_.groupOf(before_[before]).keys;
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
            for (const std::u16string& key : child.node->getAttributeKeys()) {
                boost::hash_combine(traits.emplace_back(child.name), hashText(key));
                boost::hash_combine(traits.back(), hashText(child.node->get(key)));
            }
            for (const auto& part : child.node->getChildNodes())
                boost::hash_combine(traits.emplace_back(child.name), hashNode(*part));
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
            if (!siblings_.groupOf(before_[i]).isStrict)
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

}  // namespace

Pairing pairNodes(const Siblings& siblings, std::size_t before, std::size_t after) {
    return Matching(siblings, before, after).run();
}

}  // namespace operations
