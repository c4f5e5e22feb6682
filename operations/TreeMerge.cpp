#include "operations/TreeMerge.hpp"

#include <algorithm>
#include <map>

#include "host/Interruption.hpp"
#include "operations/Errors.hpp"
#include "operations/SiblingOrder.hpp"
#include "project/metadata/SingleFileExport.hpp"
#include "store_support/EqualTrees.hpp"

namespace operations {

namespace {

bool equalPaths(const PathTree& a, const PathTree& b) {
    return a.step == b.step && store_support::equalTrees(a.node.get(), b.node.get()) &&
           std::equal(a.children.begin(), a.children.end(), b.children.begin(), b.children.end(), equalPaths);
}

/// A path as all three have it; null where it is not there.
struct Versions {
    const PathTree* base = nullptr;
    const PathTree* ours = nullptr;
    const PathTree* theirs = nullptr;
};

class TreeMerge {
public:
    PathTree merge(const pm::MetadataPath& path, const PathTree* base, const PathTree& ours, const PathTree& theirs) {
        host::Interruption::throwIfRequested();
        PathTree result;
        result.step = ours.step;
        result.node = nodes_.merge(path, base ? base->node : nullptr, ours.node, theirs.node);
        result.place = mergePlace(base ? base->place : u"", ours.place, theirs.place);
        mergeChildren(result, path, base, ours, theirs);
        return result;
    }

    std::vector<Conflict> takeConflicts() { return nodes_.takeConflicts(); }

private:
    /// A place among siblings is nobody's work; any will do as long as it is the same whoever merges.
    static std::u16string mergePlace(const std::u16string& base, const std::u16string& ours,
                                     const std::u16string& theirs) {
        if (ours == theirs || theirs == base)
            return ours;
        return ours == base ? theirs : std::min(ours, theirs);
    }

    void mergeChildren(PathTree& result, const pm::MetadataPath& path, const PathTree* base, const PathTree& ours,
                       const PathTree& theirs) {
        std::map<pm::PathElement, std::size_t> numbers;
        std::vector<Versions> children;
        const auto number = [&](const PathTree& parent, const PathTree* Versions::*side) {
            std::vector<std::size_t> order;
            for (const PathTree& child : parent.children) {
                const auto [entry, isNew] = numbers.emplace(child.step, children.size());
                if (isNew)
                    children.emplace_back();
                children[entry->second].*side = &child;
                order.push_back(entry->second);
            }
            return order;
        };
        Numbers baseOrder = base ? number(*base, &Versions::base) : Numbers();
        Numbers ourOrder = number(ours, &Versions::ours);
        Numbers theirOrder = number(theirs, &Versions::theirs);
        const auto isGone = [&](std::size_t child) { return isRemovedUnchanged(children[child]); };
        for (Numbers* const order : {&baseOrder, &ourOrder, &theirOrder})
            order->erase(std::remove_if(order->begin(), order->end(), isGone), order->end());
        const MergedOrder merged = mergeOrder(baseOrder, ourOrder, theirOrder);
        if (!merged.isConsistent)
            result.node = nodes_.mark({Conflict::What::order, path, {}, {}, {}, {}, {}}, result.node);
        for (const std::size_t child : merged.order)
            mergeChild(result, path, children[child]);
    }

    static bool isRemovedUnchanged(const Versions& child) {
        if (child.ours && child.theirs)
            return false;
        const PathTree* const kept = child.ours ? child.ours : child.theirs;
        return !kept || (child.base && equalPaths(*child.base, *kept));
    }

    void mergeChild(PathTree& result, const pm::MetadataPath& path, const Versions& child) {
        const PathTree& kept = child.ours ? *child.ours : *child.theirs;
        if (child.ours && child.theirs) {
            result.children.push_back(merge(childPath(path, kept.step), child.base, *child.ours, *child.theirs));
            return;
        }
        result.children.push_back(kept);
        if (!child.base)
            return;
        PathTree& merged = result.children.back();
        merged.node = nodes_.mark(makeRemoval(childPath(path, kept.step), child.ours), merged.node);
    }

    NodeMerge nodes_;
};

/// The result for three files of which not all are of one path: version control has taken one path for another.
MergeResult keepOnePath(const MetadataTree& base, const MetadataTree& ours, const MetadataTree& theirs) {
    const bool isBase = base.form == TreeForm::path;
    if (isBase && equalPaths(base.root, theirs.root))
        return {ours, {}};
    if (isBase && equalPaths(base.root, ours.root))
        return {theirs, {}};
    // The file is to be that of the other path, which has come in place of that of the base.
    MergeResult result{isBase && base.root.step == ours.root.step ? theirs : ours, {}};
    const auto describe = [](const MetadataTree& tree) { return Text(tree.rootPath().string()); };
    const Text before = isBase ? describe(base) : Text();
    NodeMerge nodes;
    result.tree.root.node =
        nodes.mark({Conflict::What::path, result.tree.rootPath(), {}, {}, before, describe(ours), describe(theirs)},
                   result.tree.root.node);
    result.conflicts = nodes.takeConflicts();
    return result;
}

/// Whether `tree` holds a whole project, as an exported file does, and a core file only where it holds all paths.
bool isWhole(const MetadataTree& tree) {
    const auto wholeFormat = std::dynamic_pointer_cast<const pm::MetadataFileFormat>(pm::getSingleFileFactory());
    return tree.form == TreeForm::project || (tree.form == TreeForm::core && tree.format == wholeFormat);
}

[[noreturn]] void refuseForms() {
    throw OperationError(ErrorKind::failure,
                         "What is to be merged must be of one form: projects and files that hold all of one, files of "
                         "a root path, files of another path, or files of one node");
}

void requireSameForm(const MetadataTree& a, const MetadataTree& b) {
    const bool isSame = a.form == b.form || (isWhole(a) && isWhole(b));
    if (!isSame && a.form != TreeForm::empty && b.form != TreeForm::empty)
        refuseForms();
}

}  // namespace

MergeResult mergeTrees(const MetadataTree& base, const MetadataTree& ours, const MetadataTree& theirs) {
    requireSameForm(base, ours);
    requireSameForm(base, theirs);
    requireSameForm(ours, theirs);
    if (ours.form == TreeForm::empty && theirs.form == TreeForm::project)
        refuseForms();  // an empty file does not say as what kind of file it would have to be written
    MergeResult result;
    const MetadataTree& shape = ours.form == TreeForm::empty ? theirs : ours;
    result.tree.form = shape.form;
    result.tree.format = shape.format;
    if (ours.form == TreeForm::empty || theirs.form == TreeForm::empty) {
        // One side has no such file, or both have an empty one.
        result.tree = shape;
        return result;
    }
    const auto isOther = [&](const MetadataTree& tree) {
        return tree.form == TreeForm::path && tree.root.step != ours.root.step;
    };
    if (isOther(base) || isOther(theirs))
        return keepOnePath(base, ours, theirs);
    TreeMerge merge;
    const PathTree* const root = base.form == TreeForm::empty ? nullptr : &base.root;
    result.tree.root = merge.merge(ours.rootPath(), root, ours.root, theirs.root);
    result.conflicts = merge.takeConflicts();
    return result;
}

}  // namespace operations
