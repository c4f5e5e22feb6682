#include "operations/TreeDiff.hpp"

#include <algorithm>
#include <map>
#include <utility>

#include "host/Interruption.hpp"
#include "operations/NodeMatch.hpp"
#include "store_support/EqualTrees.hpp"
#include "store_support/LongestAscent.hpp"

namespace operations {

namespace {

namespace pm = project::metadata;

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

std::size_t getPosition(const Nodes& siblings, std::size_t index) {
    const auto hasName = [&](const auto& node) { return node->getName() == siblings[index]->getName(); };
    if (std::count_if(siblings.begin(), siblings.end(), hasName) == 1)
        return 0;
    const auto end = siblings.begin() + static_cast<std::ptrdiff_t>(index) + 1;
    return static_cast<std::size_t>(std::count_if(siblings.begin(), end, hasName));
}

NodeDiff diffNodes(const pm::MetadataNode& before, const pm::MetadataNode& after);

std::vector<NodeDiff> diffChildren(const Nodes& before, const Nodes& after) {
    std::vector<NodeDiff> diffs;
    const auto match = matchNodes(before, after);
    std::vector<bool> isMatched(after.size());
    for (const auto& partner : match) {
        if (partner)
            isMatched[*partner] = true;
    }
    std::size_t next = 0;  // of `after`
    const auto addUpTo = [&](std::size_t end) {
        for (; next < end; ++next) {
            if (!isMatched[next])
                diffs.push_back({nullptr, after[next].get(), getPosition(after, next), {}, {}});
        }
    };
    for (std::size_t i = 0; i < before.size(); ++i) {
        if (!match[i]) {
            diffs.push_back({before[i].get(), nullptr, getPosition(before, i), {}, {}});
            continue;
        }
        addUpTo(*match[i]);
        if (store_support::equalTrees(*before[i], *after[*match[i]]))
            continue;
        diffs.push_back(diffNodes(*before[i], *after[*match[i]]));
        diffs.back().position = getPosition(after, *match[i]);
    }
    addUpTo(after.size());
    return diffs;
}

NodeDiff diffNodes(const pm::MetadataNode& before, const pm::MetadataNode& after) {
    return {&before, &after, 0, diffAttributes(getAttributes(before), getAttributes(after)),
            diffChildren(before.getChildNodes(), after.getChildNodes())};
}

/// Which of `places`, all different, must move so that the others ascend: as few as possible.
std::vector<bool> findMoved(const std::vector<std::size_t>& places) {
    std::vector<bool> isMoved(places.size(), true);
    const std::vector<std::optional<std::size_t>> values(places.begin(), places.end());
    for (const std::size_t place : store_support::findLongestAscent(values))
        isMoved[place] = false;
    return isMoved;
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
            diff.node = NodeDiff{before.node.get(), after.node.get(), 0, {}, {}};
        }
        if (isMoved || !diff.attributes.empty() || diff.node)
            diffs_.push_back(std::move(diff));
        compareChildren(path, before.children, after.children);
    }

    std::vector<PathDiff> takeDiffs() { return std::move(diffs_); }

private:
    void addWhole(const pm::MetadataPath& path, const PathTree& tree, bool isBefore) {
        PathDiff diff{path, isBefore ? &tree : nullptr, isBefore ? nullptr : &tree, false, {}, std::nullopt};
        if (tree.node)
            diff.node = NodeDiff{isBefore ? tree.node.get() : nullptr, isBefore ? nullptr : tree.node.get(), 0, {}, {}};
        diffs_.push_back(std::move(diff));
        for (const PathTree& child : tree.children)
            addWhole(childPath(path, child.step), child, isBefore);
    }

    void compareChildren(const pm::MetadataPath& path, const std::vector<PathTree>& before,
                         const std::vector<PathTree>& after) {
        std::map<pm::PathElement, std::size_t> places;  // in `before`, of those that are not in `after` in the end
        for (std::size_t i = 0; i < before.size(); ++i)
            places.emplace(before[i].step, i);
        std::vector<const PathTree*> partners;
        std::vector<std::size_t> common;
        for (const PathTree& child : after) {
            const auto place = places.find(child.step);
            partners.push_back(place == places.end() ? nullptr : &before[place->second]);
            if (place == places.end())
                continue;
            common.push_back(place->second);
            places.erase(place);
        }
        const std::vector<bool> isMoved = findMoved(common);
        std::vector<bool> isRemoved(before.size());
        for (const auto& [step, place] : places)
            isRemoved[place] = true;

        std::size_t next = 0;  // of `before`
        const auto removeUpTo = [&](std::size_t end) {
            for (; next < end; ++next) {
                if (isRemoved[next])
                    addWhole(childPath(path, before[next].step), before[next], true);
            }
        };
        for (std::size_t i = 0, commonCount = 0; i < after.size(); ++i) {
            const pm::MetadataPath child = childPath(path, after[i].step);
            if (!partners[i]) {
                while (next < before.size() && isRemoved[next])
                    removeUpTo(next + 1);
                addWhole(child, after[i], false);
                continue;
            }
            if (!isMoved[commonCount])
                removeUpTo(common[commonCount] + 1);
            compare(child, *partners[i], after[i], isMoved[commonCount++]);
        }
        removeUpTo(before.size());
    }

    bool withPlaces_;
    std::vector<PathDiff> diffs_;
};

}  // namespace

std::vector<PathDiff> diffTrees(const MetadataTree& before, const MetadataTree& after) {
    const auto isFile = [](const MetadataTree& tree) { return tree.form != TreeForm::project; };
    Comparison comparison(isFile(before) && isFile(after));
    comparison.compare(before.rootPath(), before.root, after.root, false);
    return comparison.takeDiffs();
}

}  // namespace operations
