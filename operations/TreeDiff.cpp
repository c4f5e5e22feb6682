#include "operations/TreeDiff.hpp"

#include <map>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "host/Interruption.hpp"
#include "operations/NodeAddress.hpp"
#include "operations/NodeMatch.hpp"
#include "operations/SiblingOrder.hpp"
#include "store_support/EqualTrees.hpp"

namespace operations {

namespace {

using Attributes = std::map<std::u16string, std::u16string>;

Attributes getAttributes(const pm::MetadataNode& node) {
    Attributes attributes;
    for (const std::u16string& key : node.getAttributeKeys())
        attributes[key] = node.get(key);
    return attributes;
}

/// Where a file says that a path stands, as an attribute.
Attributes getPlace(const PathTree& tree) {
    return tree.place.empty() ? Attributes() : Attributes{{u"Place", tree.place}};
}

std::vector<AttributeDiff> diffAttributes(const Attributes& before, const Attributes& after) {
    std::map<std::u16string, AttributeDiff> all;
    for (const auto& [key, value] : before)
        all[key].before = value;
    for (const auto& [key, value] : after)
        all[key].after = value;
    std::vector<AttributeDiff> diffs;
    for (auto& [key, diff] : all) {
        diff.key = key;
        if (diff.before != diff.after)
            diffs.push_back(std::move(diff));
    }
    return diffs;
}

/// The place of each node among its siblings of the same name, from 1; 0 for the only one.
std::vector<std::size_t> findPositions(const Nodes& siblings) {
    std::unordered_map<std::u16string_view, std::size_t> counts;
    std::vector<std::size_t> positions;
    for (const auto& node : siblings)
        positions.push_back(++counts[node->getName()]);
    for (std::size_t i = 0; i < siblings.size(); ++i)
        positions[i] = counts[siblings[i]->getName()] == 1 ? 0 : positions[i];
    return positions;
}

NodeDiff diffNodes(const pm::MetadataNode& before, const pm::MetadataNode& after);

std::vector<NodeDiff> diffChildren(const Nodes& before, const Nodes& after) {
    const Siblings siblings({&before, &after});
    const Pairing pairing = pairNodes(siblings, 0, 1);
    Numbers partners(after.size(), none);
    for (std::size_t i = 0; i < before.size(); ++i) {
        if (pairing.partners[i] != none)
            partners[pairing.partners[i]] = i;
    }
    const auto positionsBefore = findPositions(before);
    const auto positionsAfter = findPositions(after);
    std::vector<NodeDiff> diffs;
    for (const Aligned& child : align(before.size(), partners)) {
        if (child.after == none) {
            diffs.push_back({before[child.before].get(), nullptr, positionsBefore[child.before], false, {}, {}});
        } else if (child.before == none) {
            diffs.push_back({nullptr, after[child.after].get(), positionsAfter[child.after], false, {}, {}});
        } else if (child.isMoved ||
                   siblings.children(0)[child.before].content != siblings.children(1)[child.after].content) {
            diffs.push_back(diffNodes(*before[child.before], *after[child.after]));
            diffs.back().position = positionsAfter[child.after];
            diffs.back().isMoved = child.isMoved;
        }
    }
    return diffs;
}

NodeDiff diffNodes(const pm::MetadataNode& before, const pm::MetadataNode& after) {
    return {&before,
            &after,
            0,
            false,
            diffAttributes(getAttributes(before), getAttributes(after)),
            diffChildren(before.getChildNodes(), after.getChildNodes())};
}

/// One path of two trees, either of which may lack it.
class Comparison {
public:
    explicit Comparison(bool withPlaces) : withPlaces_(withPlaces) {}

    void compare(const pm::MetadataPath& path, const PathTree& before, const PathTree& after, bool isMoved) {
        host::Interruption::throwIfRequested();
        PathDiff diff{path, &before, &after, isMoved, {}, std::nullopt};
        if (withPlaces_)
            diff.attributes = diffAttributes(getPlace(before), getPlace(after));
        if (before.node && after.node) {
            if (!store_support::equalTrees(*before.node, *after.node))
                diff.node = diffNodes(*before.node, *after.node);
        } else if (before.node || after.node) {
            diff.node = NodeDiff{before.node.get(), after.node.get(), 0, false, {}, {}};
        }
        if (isMoved || !diff.attributes.empty() || diff.node)
            diffs_.push_back(std::move(diff));
        compareChildren(path, before.children, after.children);
    }

    /// Everything that only one side has.
    void addWhole(const pm::MetadataPath& path, const PathTree& tree, bool isBefore) {
        PathDiff diff{path, isBefore ? &tree : nullptr, isBefore ? nullptr : &tree, false, {}, std::nullopt};
        if (tree.node)
            diff.node =
                NodeDiff{isBefore ? tree.node.get() : nullptr, isBefore ? nullptr : tree.node.get(), 0, false, {}, {}};
        diffs_.push_back(std::move(diff));
        for (const PathTree& child : tree.children)
            addWhole(childPath(path, child.step), child, isBefore);
    }

    std::vector<PathDiff> takeDiffs() { return std::move(diffs_); }

private:
    void compareChildren(const pm::MetadataPath& path, const std::vector<PathTree>& before,
                         const std::vector<PathTree>& after) {
        std::map<pm::PathElement, std::size_t> places;  // in `before`, of those that have no partner yet
        for (std::size_t i = 0; i < before.size(); ++i)
            places.emplace(before[i].step, i);
        Numbers partners;
        for (const PathTree& child : after) {
            const auto place = places.find(child.step);
            partners.push_back(place == places.end() ? none : place->second);
            if (place != places.end())
                places.erase(place);
        }
        for (const Aligned& child : align(before.size(), partners)) {
            if (child.after == none)
                addWhole(childPath(path, before[child.before].step), before[child.before], true);
            else if (child.before == none)
                addWhole(childPath(path, after[child.after].step), after[child.after], false);
            else
                compare(childPath(path, after[child.after].step), before[child.before], after[child.after],
                        child.isMoved);
        }
    }

    bool withPlaces_;
    std::vector<PathDiff> diffs_;
};

}  // namespace

std::vector<PathDiff> diffTrees(const MetadataTree& before, const MetadataTree& after) {
    const auto isFile = [](const MetadataTree& tree) { return tree.form != TreeForm::project; };
    const auto isEmpty = [](const MetadataTree& tree) { return tree.form == TreeForm::empty; };
    const auto isOfPath = [](const MetadataTree& tree) { return tree.form == TreeForm::path; };
    if (!isEmpty(before) && !isEmpty(after) && isOfPath(before) != isOfPath(after)) {
        throw AddressError(ErrorKind::failure,
                           {"A file of the path ", NodeAddress{(isOfPath(before) ? before : after).rootPath()},
                            " does not say what lies above that, so it can be compared only with another file of one "
                            "path"});
    }
    Comparison comparison(isFile(before) && isFile(after));
    if (before.rootPath() == after.rootPath()) {
        comparison.compare(before.rootPath(), before.root, after.root, false);
        return comparison.takeDiffs();
    }
    for (const MetadataTree* const tree : {&before, &after}) {
        if (!isEmpty(*tree))
            comparison.addWhole(tree->rootPath(), tree->root, tree == &before);
    }
    return comparison.takeDiffs();
}

}  // namespace operations
