#include "operations/NodeMerge.hpp"

#include <algorithm>
#include <array>
#include <map>
#include <set>
#include <unordered_map>
#include <utility>

#include "operations/NodeEdit.hpp"
#include "operations/NodeMatch.hpp"
#include "operations/SiblingOrder.hpp"
#include "project/metadata/MetadataNodeSpecification.hpp"
#include "store_support/EqualTrees.hpp"

namespace operations {

using pm::MetadataNode;

const std::u16string conflictName = u"Conflict";
const std::u16string madeForMarkKey = u"Node";

namespace {

/// A child node as all three have it, where it is there.
struct Versions {
    enum Side { base, ours, theirs };

    std::array<const MetadataNode*, 3> nodes{};
    std::array<std::size_t, 3> contents{none, none, none};  // equal for equal nodes

    bool isRemoved() const { return nodes[base] && (!nodes[ours] || !nodes[theirs]); }

    /// Null if nobody has changed what the other has removed.
    const MetadataNode* findKept() const {
        const Side side = nodes[ours] ? ours : theirs;
        return isRemoved() && contents[side] == contents[base] ? nullptr : nodes[side];
    }
};

/// All child nodes, numbered: those of the base first, then what was added.
class Numbering {
public:
    std::vector<Versions> children;
    std::set<std::u16string> unclear;  // names of those that both sides have changed, and who is who is not certain

    Numbering(const Nodes& baseNodes, const Nodes& oursNodes, const Nodes& theirNodes, bool hasBase)
        : nodes_{&baseNodes, &oursNodes, &theirNodes}, siblings_({&baseNodes, &oursNodes, &theirNodes}) {
        for (const Versions::Side side : {Versions::base, Versions::ours, Versions::theirs})
            numbers_[side].resize(nodes_[side]->size(), none);
        for (std::size_t i = 0; i < baseNodes.size(); ++i)
            addNew(Versions::base, i);
        numberCommon();
        const Pairing added = pairNodes(siblings_, Versions::ours, Versions::theirs);
        for (std::size_t i = 0; i < oursNodes.size(); ++i) {
            if (numbers_[Versions::ours][i] != none)
                continue;
            addNew(Versions::ours, i);
            const std::size_t partner = added.partners[i];
            if (partner == none || numbers_[Versions::theirs][partner] != none)
                continue;
            // What both have added alike is one child, and what has one identity. Without a base, one name is enough.
            const bool isOne =
                siblings_.children(Versions::ours)[i].content == siblings_.children(Versions::theirs)[partner].content;
            const bool isCertain =
                added.isCertain[i] && (!hasBase || siblings_.groupOf(siblings_.children(Versions::ours)[i]).isStrict);
            if (isOne || isCertain)
                put(Versions::theirs, partner, numbers_[Versions::ours][i]);
        }
        for (std::size_t i = 0; i < theirNodes.size(); ++i) {
            if (numbers_[Versions::theirs][i] == none)
                addNew(Versions::theirs, i);
        }
    }

    /// The order of those that are kept.
    MergedOrder mergeOrder() const {
        std::array<Numbers, 3> kept;
        for (std::size_t side = 0; side < kept.size(); ++side) {
            std::copy_if(numbers_[side].begin(), numbers_[side].end(), std::back_inserter(kept[side]),
                         [&](std::size_t number) { return children[number].findKept(); });
        }
        return operations::mergeOrder(kept[Versions::base], kept[Versions::ours], kept[Versions::theirs]);
    }

private:
    void put(Versions::Side side, std::size_t place, std::size_t number) {
        numbers_[side][place] = number;
        children[number].nodes[side] = (*nodes_[side])[place].get();
        children[number].contents[side] = siblings_.children(side)[place].content;
    }

    void addNew(Versions::Side side, std::size_t place) {
        children.emplace_back();
        put(side, place, children.size() - 1);
    }

    /// The names of which both sides have not the same children.
    std::map<std::u16string, bool> findDiffering() const {
        std::map<std::u16string, std::pair<Numbers, Numbers>> contents;
        for (const Versions::Side side : {Versions::ours, Versions::theirs}) {
            for (std::size_t i = 0; i < nodes_[side]->size(); ++i) {
                auto& [here, there] = contents[(*nodes_[side])[i]->getName()];
                (side == Versions::ours ? here : there).push_back(siblings_.children(side)[i].content);
            }
        }
        std::map<std::u16string, bool> differing;
        for (const auto& [name, sides] : contents)
            differing[name] = sides.first != sides.second;
        return differing;
    }

    /// Which of those before have others on another side of them than after.
    static std::vector<bool> findReordered(const Numbers& partners) {
        std::vector<bool> isReordered(partners.size());
        std::size_t end = 0;  // of the places after that have been passed
        for (std::size_t i = 0; i < partners.size(); ++i) {
            if (partners[i] == none)
                continue;
            isReordered[i] = partners[i] < end;
            end = std::max(end, partners[i] + 1);
        }
        std::size_t begin = none;
        for (std::size_t i = partners.size(); i-- > 0;) {
            if (partners[i] == none)
                continue;
            isReordered[i] = isReordered[i] || partners[i] > begin;
            begin = std::min(begin, partners[i]);
        }
        return isReordered;
    }

    /// Numbers what both sides, or one of them, have of the base.
    void numberCommon() {
        const Pairing ours = pairNodes(siblings_, Versions::base, Versions::ours);
        const Pairing theirs = pairNodes(siblings_, Versions::base, Versions::theirs);
        std::map<std::u16string, bool> differing = findDiffering();
        const std::vector<bool> isMovedByOurs = findReordered(ours.partners);
        const std::vector<bool> isMovedByTheirs = findReordered(theirs.partners);
        for (std::size_t i = 0; i < ours.partners.size(); ++i) {
            const std::size_t our = ours.partners[i];
            const std::size_t their = theirs.partners[i];
            const std::size_t content = children[i].contents[Versions::base];
            const std::size_t ourContent = our == none ? none : siblings_.children(Versions::ours)[our].content;
            const std::size_t theirContent = their == none ? none : siblings_.children(Versions::theirs)[their].content;
            const bool isTouchedByOurs = !ours.isCertain[i] || ourContent != content || isMovedByOurs[i];
            const bool isTouchedByTheirs = !theirs.isCertain[i] || theirContent != content || isMovedByTheirs[i];
            // If both have removed one, or may have, nobody knows whether it is the same, unless all is.
            const bool isMadeAlike = ourContent != content && ourContent != none;
            const bool isAlike =
                ourContent == theirContent && (isMadeAlike || !differing[children[i].nodes[Versions::base]->getName()]);
            const bool isUnclear =
                !(ours.isCertain[i] && theirs.isCertain[i]) && isTouchedByOurs && isTouchedByTheirs && !isAlike;
            if (our != none)
                put(Versions::ours, our, i);
            if (!isUnclear) {
                if (their != none)
                    put(Versions::theirs, their, i);
                continue;
            }
            // What both sides have stays, each by itself.
            unclear.insert(children[i].nodes[Versions::base]->getName());
            if (their != none && (our == none || theirContent != content))
                addNew(Versions::theirs, their);
            children[i].nodes[Versions::base] = nullptr;
        }
    }

    std::array<const Nodes*, 3> nodes_;
    std::array<Numbers, 3> numbers_;  // in the order of each version
    Siblings siblings_;
};

}  // namespace

const char16_t* nameOfConflict(Conflict::What what) {
    constexpr std::array names{u"attribute", u"name", u"removed", u"children", u"order", u"path"};
    return names.at(static_cast<std::size_t>(what));
}

Text mergeText(const Text& base, const Text& ours, const Text& theirs, bool& isConflict) {
    isConflict = ours != theirs && ours != base && theirs != base;
    if (isConflict)
        return ours ? ours : theirs;
    return ours == base ? theirs : ours;
}

NodePtr NodeMerge::merge(const pm::MetadataPath& path, const NodePtr& base, const NodePtr& ours,
                         const NodePtr& theirs) {
    path_ = path;
    if (ours && theirs) {
        if (store_support::equalTrees(*ours, *theirs))
            return ours;
        bool isConflict = false;
        const Text name =
            mergeText(base ? Text(base->getName()) : std::nullopt, ours->getName(), theirs->getName(), isConflict);
        auto result = std::make_shared<pm::MetadataNodeSpecification>(*name);
        mergeInto(*result, base.get(), *ours, *theirs);
        return result;
    }
    const NodePtr& kept = ours ? ours : theirs;
    if (!kept || !base)
        return kept;
    if (store_support::equalTrees(*kept, *base))
        return nullptr;
    return mark(makeRemoval(path, ours != nullptr), kept);
}

NodePtr NodeMerge::mark(Conflict conflict, const NodePtr& node) {
    auto marked = node ? std::make_shared<pm::MetadataNodeSpecification>(*node)
                       : std::make_shared<pm::MetadataNodeSpecification>();
    names_.clear();
    path_ = conflict.path;
    markIn(*marked, std::move(conflict));
    if (!node)
        marked->getChildNodes().back()->put(madeForMarkKey, u"none");
    return marked;
}

void NodeMerge::markIn(MetadataNode& node, Conflict conflict) {
    conflict.path = path_;
    for (const std::u16string& name : names_)
        conflict.node += (conflict.node.empty() ? u"" : u"/") + name;
    MetadataNode& mark = node.createChildNode(conflictName);
    mark.put(u"What", nameOfConflict(conflict.what));
    if (conflict.what == Conflict::What::removed) {
        mark.put(u"RemovedBy", conflict.ours ? u"theirs" : u"ours");
    } else {
        const std::pair<const char16_t*, const Text&> values[] = {
            {u"Base", conflict.base}, {u"Ours", conflict.ours}, {u"Theirs", conflict.theirs}};
        for (const auto& [key, value] : values) {
            if (value)
                mark.put(key, *value);
        }
    }
    if (!conflict.key.empty())
        mark.put(conflict.what == Conflict::What::children ? u"Name" : u"Key", conflict.key);
    conflicts_.push_back(std::move(conflict));
}

void NodeMerge::mergeInto(MetadataNode& result, const MetadataNode* base, const MetadataNode& ours,
                          const MetadataNode& theirs) {
    std::set<std::u16string> keys;
    for (const MetadataNode* node : {&ours, &theirs}) {
        for (std::u16string& key : node->getAttributeKeys())
            keys.insert(std::move(key));
    }
    std::vector<Conflict> found;
    for (const std::u16string& key : keys) {
        Conflict conflict{Conflict::What::attribute,  {}, {}, key, findAttribute(base, key), findAttribute(&ours, key),
                          findAttribute(&theirs, key)};
        bool isConflict = false;
        if (const Text value = mergeText(conflict.base, conflict.ours, conflict.theirs, isConflict))
            result.put(key, *value);
        if (isConflict)
            found.push_back(std::move(conflict));
    }
    mergeChildren(result, base, ours, theirs, found);
    mergeName(result, base, ours, theirs);
    for (Conflict& conflict : found)
        markIn(result, std::move(conflict));
}

/// Marks where the names, of which the result has one, are in conflict.
void NodeMerge::mergeName(MetadataNode& result, const MetadataNode* base, const MetadataNode& ours,
                          const MetadataNode& theirs) {
    Conflict conflict{Conflict::What::name, {}, {}, {}, {}, ours.getName(), theirs.getName()};
    if (base)
        conflict.base = base->getName();
    bool isConflict = false;
    mergeText(conflict.base, conflict.ours, conflict.theirs, isConflict);
    if (isConflict)
        markIn(result, std::move(conflict));
}

/// @param found where conflicts go that are marked in the result itself
void NodeMerge::mergeChildren(MetadataNode& result, const MetadataNode* base, const MetadataNode& ours,
                              const MetadataNode& theirs, std::vector<Conflict>& found) {
    const Numbering all(base ? base->getChildNodes() : Nodes(), ours.getChildNodes(), theirs.getChildNodes(), base);
    const MergedOrder merged = all.mergeOrder();
    std::unordered_map<std::u16string, std::size_t> counts;
    for (const std::size_t number : merged.order) {
        const Versions& child = all.children[number];
        const MetadataNode& kept = *child.findKept();
        const std::u16string& name = kept.getName();
        MetadataNode& mergedChild = result.createChildNode(name);
        const std::string position = '[' + std::to_string(++counts[name]) + ']';
        names_.push_back(name + std::u16string(position.begin(), position.end()));
        const auto& [baseNode, ourNode, theirNode] = child.nodes;
        if (ourNode && theirNode && child.contents[Versions::ours] != child.contents[Versions::theirs]) {
            mergeInto(mergedChild, baseNode, *ourNode, *theirNode);
        } else {
            mergedChild.copy(kept);
            if (child.isRemoved())
                markIn(mergedChild, makeRemoval({}, ourNode));
        }
        names_.pop_back();
    }
    for (const std::u16string& name : all.unclear)
        found.push_back({Conflict::What::children, {}, {}, name, {}, {}, {}});
    if (!merged.isConsistent)
        found.push_back({Conflict::What::order, {}, {}, {}, {}, {}, {}});
}

}  // namespace operations
