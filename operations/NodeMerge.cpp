#include "operations/NodeMerge.hpp"

#include <algorithm>
#include <set>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "operations/NodeMatch.hpp"
#include "project/metadata/MetadataNodeSpecification.hpp"
#include "store_support/EqualTrees.hpp"

namespace operations {

namespace pm = project::metadata;

using pm::MetadataNode;

const std::u16string conflictName = u"Conflict";

namespace {

constexpr auto none = static_cast<std::size_t>(-1);

using Numbers = std::vector<std::size_t>;
using NumberSet = std::unordered_set<std::size_t>;

Numbers keepOnly(const Numbers& numbers, const NumberSet& kept) {
    Numbers result;
    std::copy_if(numbers.begin(), numbers.end(), std::back_inserter(result),
                 [&](std::size_t number) { return kept.count(number) != 0; });
    return result;
}

/// Whether `side` has what it shares with `base` in another order.
bool isReordered(const Numbers& base, const Numbers& side) {
    return keepOnly(side, {base.begin(), base.end()}) != keepOnly(base, {side.begin(), side.end()});
}

Text getText(const MetadataNode* node, const std::u16string& key) {
    if (!node)
        return std::nullopt;
    const auto keys = node->getAttributeKeys();
    return std::binary_search(keys.begin(), keys.end(), key) ? Text(node->get(key)) : std::nullopt;
}

/// A child node as all three have it; null where it is not there.
struct Versions {
    const MetadataNode* base = nullptr;
    const MetadataNode* ours = nullptr;
    const MetadataNode* theirs = nullptr;
};

/// All child nodes, numbered: those of the base first, then what was added.
struct Numbering {
    std::vector<Versions> children;
    Numbers base, ours, theirs;  // the order of the children there

    Numbering(const Nodes& baseNodes, const Nodes& oursNodes, const Nodes& theirNodes, bool hasBase) {
        for (const auto& node : baseNodes)
            base.push_back(addNew({node.get(), nullptr, nullptr}));
        ours = number(base, matchNodes(baseNodes, oursNodes), oursNodes, &Versions::ours);
        theirs = number(base, matchNodes(baseNodes, theirNodes), theirNodes, &Versions::theirs);
        joinAdded(oursNodes, theirNodes, hasBase);
    }

private:
    std::size_t addNew(Versions versions) {
        children.push_back(versions);
        return children.size() - 1;
    }

    /// The numbers of `nodes`, which match those numbered `known`.
    Numbers number(const Numbers& known, const std::vector<std::optional<std::size_t>>& match, const Nodes& nodes,
                   const MetadataNode* Versions::*side) {
        Numbers numbers(nodes.size(), none);
        for (std::size_t i = 0; i < known.size(); ++i) {
            if (match[i])
                numbers[*match[i]] = known[i];
        }
        for (std::size_t i = 0; i < nodes.size(); ++i) {
            if (numbers[i] == none)
                numbers[i] = addNew({});
            children[numbers[i]].*side = nodes[i].get();
        }
        return numbers;
    }

    /// What both have added alike is one child; without a base, so is what has the same name.
    void joinAdded(const Nodes& oursNodes, const Nodes& theirNodes, bool hasBase) {
        const auto isAdded = [&](std::size_t number) { return !children[number].base; };
        Numbers oursAdded, theirsAdded;  // places in the lists
        Nodes oursNew, theirsNew;
        for (std::size_t i = 0; i < ours.size(); ++i) {
            if (isAdded(ours[i])) {
                oursAdded.push_back(i);
                oursNew.push_back(oursNodes[i]);
            }
        }
        for (std::size_t i = 0; i < theirs.size(); ++i) {
            if (isAdded(theirs[i])) {
                theirsAdded.push_back(i);
                theirsNew.push_back(theirNodes[i]);
            }
        }
        const auto match = matchNodes(oursNew, theirsNew);
        for (std::size_t i = 0; i < match.size(); ++i) {
            if (!match[i] || (hasBase && !store_support::equalTrees(*oursNew[i], *theirsNew[*match[i]])))
                continue;
            const std::size_t kept = ours[oursAdded[i]];
            children[kept].theirs = theirsNew[*match[i]].get();
            theirs[theirsAdded[*match[i]]] = kept;
        }
    }
};

}  // namespace

Text mergeText(const Text& base, const Text& ours, const Text& theirs, bool& isConflict) {
    isConflict = ours != theirs && ours != base && theirs != base;
    if (isConflict)
        return ours ? ours : theirs;
    return ours == base ? theirs : ours;
}

std::vector<std::size_t> mergeOrder(const Numbers& base, const Numbers& ours, const Numbers& theirs) {
    const bool framedByTheirs = !isReordered(base, ours) && isReordered(base, theirs);
    const Numbers& frame = framedByTheirs ? theirs : ours;
    const Numbers& other = framedByTheirs ? ours : theirs;
    const NumberSet inFrame(frame.begin(), frame.end());
    const NumberSet inOther(other.begin(), other.end());

    std::unordered_map<std::size_t, Numbers> followers;  // of which of the frame, or of none
    std::size_t anchor = none;
    for (const std::size_t number : other) {
        if (inFrame.count(number) != 0)
            anchor = number;
        else
            followers[anchor].push_back(number);
    }
    Numbers order;
    const Numbers* waiting = &followers[none];
    const auto addWaiting = [&] { order.insert(order.end(), waiting->begin(), waiting->end()); };
    for (const std::size_t number : frame) {
        const bool isAnchor = inOther.count(number) != 0;
        if (isAnchor)
            addWaiting();
        order.push_back(number);
        if (isAnchor)
            waiting = &followers[number];
    }
    addWaiting();
    return order;
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
    const Text changed = u"changed";
    return mark({Conflict::What::removed, path, {}, {}, {}, ours ? changed : Text(), theirs ? changed : Text()}, kept);
}

NodePtr NodeMerge::mark(Conflict conflict, const NodePtr& node) {
    auto marked = node ? std::make_shared<pm::MetadataNodeSpecification>(*node)
                       : std::make_shared<pm::MetadataNodeSpecification>();
    names_.clear();
    path_ = conflict.path;
    markIn(*marked, std::move(conflict));
    return marked;
}

void NodeMerge::markIn(MetadataNode& node, Conflict conflict) {
    conflict.path = path_;
    for (const std::u16string& name : names_)
        conflict.node += (conflict.node.empty() ? u"" : u"/") + name;
    MetadataNode& mark = node.createChildNode(conflictName);
    if (conflict.what == Conflict::What::removed) {
        mark.put(u"What", u"removed");
        mark.put(u"RemovedBy", conflict.ours ? u"theirs" : u"ours");
    } else {
        const bool isName = conflict.what == Conflict::What::name;
        mark.put(u"What", isName ? u"name" : u"attribute");
        if (!isName)
            mark.put(u"Key", conflict.key);
        const std::pair<const char16_t*, const Text&> values[] = {
            {u"Base", conflict.base}, {u"Ours", conflict.ours}, {u"Theirs", conflict.theirs}};
        for (const auto& [key, value] : values) {
            if (value)
                mark.put(key, *value);
        }
    }
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
        Conflict conflict{Conflict::What::attribute, {}, {}, key, getText(base, key), getText(&ours, key),
                          getText(&theirs, key)};
        bool isConflict = false;
        if (const Text value = mergeText(conflict.base, conflict.ours, conflict.theirs, isConflict))
            result.put(key, *value);
        if (isConflict)
            found.push_back(std::move(conflict));
    }
    mergeChildren(result, base, ours, theirs);
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

void NodeMerge::mergeChildren(MetadataNode& result, const MetadataNode* base, const MetadataNode& ours,
                              const MetadataNode& theirs) {
    const Numbering all(base ? base->getChildNodes() : Nodes(), ours.getChildNodes(), theirs.getChildNodes(), base);
    std::unordered_map<std::u16string, std::size_t> counts;
    for (const std::size_t number : mergeOrder(all.base, all.ours, all.theirs)) {
        const Versions& child = all.children[number];
        const MetadataNode* const kept = child.ours ? child.ours : child.theirs;
        const bool isRemoved = child.base && (!child.ours || !child.theirs);
        if (isRemoved && store_support::equalTrees(*kept, *child.base))
            continue;
        const std::u16string& name = kept->getName();
        MetadataNode& merged = result.createChildNode(name);
        const std::string position = '[' + std::to_string(++counts[name]) + ']';
        names_.push_back(name + std::u16string(position.begin(), position.end()));
        if (child.ours && child.theirs) {
            mergeInto(merged, child.base, *child.ours, *child.theirs);
        } else {
            merged.copy(*kept);
            const Text changed = u"changed";
            if (isRemoved) {
                markIn(merged, {Conflict::What::removed,
                                {},
                                {},
                                {},
                                {},
                                child.ours ? changed : Text(),
                                child.theirs ? changed : Text()});
            }
        }
        names_.pop_back();
    }
}

}  // namespace operations
