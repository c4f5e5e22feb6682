#include "operations/EditedPaths.hpp"

#include <algorithm>
#include <iterator>
#include <list>
#include <map>
#include <utility>

#include "operations/MetadataTree.hpp"
#include "operations/TreeWalk.hpp"

namespace operations {

/// A path, by its last step, with what is below it. It is moved, never copied.
struct EditedPaths::Branch {
    explicit Branch(const pm::PathElement& itsStep) : step(itsStep) {}

    /// @param next what follows it then
    Branch& insert(std::list<Branch>::iterator next, const pm::PathElement& child) {
        const auto place = children.emplace(next, child);
        places.emplace(child, place);
        return *place;
    }

    pm::PathElement step;
    std::list<Branch> children;
    std::map<pm::PathElement, std::list<Branch>::iterator> places;
};

EditedPaths::EditedPaths(const pm::MetadataManager& store, Observer& observer, OnGone onGone)
    : store_(store), observer_(observer), onGone_(std::move(onGone)) {}

EditedPaths::~EditedPaths() = default;

bool EditedPaths::has(const pm::MetadataPath& path) const {
    if (tree_)
        return findBranch(path) != nullptr;
    return removedSet_.count(path) == 0 && (addedSet_.count(path) > 0 || store_.hasPath(path));
}

bool EditedPaths::wasThere(const pm::MetadataPath& path) const {
    return tree_ ? beforeSet_.count(path) > 0 : addedSet_.count(path) == 0;
}

std::vector<pm::PathElement> EditedPaths::listChildren(const pm::MetadataPath& path) const {
    std::vector<pm::PathElement> steps;
    if (tree_) {
        for (const Branch& child : findBranch(path)->children)
            steps.push_back(child.step);
    } else {
        for (const pm::MetadataPath& child : store_.getChildren(path)) {
            if (removedSet_.count(child) == 0)
                steps.push_back(child.getLeaf());
        }
    }
    return steps;
}

void EditedPaths::make(const pm::MetadataPath& path) {
    std::vector<pm::PathElement> steps;
    Branch* branch = gone_.empty() ? tree_.get() : &tree();
    for (const pm::PathElement& step : path.getPath()) {
        steps.push_back(step);
        if (branch) {
            const auto known = branch->places.find(step);
            branch = known != branch->places.end() ? &*known->second : &branch->insert(branch->children.end(), step);
            continue;
        }
        pm::MetadataPath each(steps);
        if (!has(each) && addedSet_.insert(each).second)
            added_.push_back(std::move(each));
    }
}

void EditedPaths::addLast(const pm::MetadataPath& path) {
    hasBranches_ = true;
    make(path);
}

void EditedPaths::addBeside(const pm::MetadataPath& path, const pm::MetadataPath& sibling, bool isBefore) {
    hasBranches_ = true;
    tree();
    Branch& parent = *findBranch(path.getParent());
    const auto next = parent.places.at(sibling.getLeaf());
    parent.insert(isBefore ? next : std::next(next), path.getLeaf());
}

void EditedPaths::remove(const pm::MetadataPath& path) {
    if (tree_ || !added_.empty()) {
        removeBranch(path);
        return;
    }
    const auto progress = observer_.start("Reading");
    for (pm::MetadataPath& each : listPaths(store_, path, *progress)) {
        // The root path stays, and loses its node.
        if (each.getPath().empty())
            onGone_(each);
        else if (removedSet_.insert(each).second)
            removed_.push_back(std::move(each));
    }
    gone_.push_back(path);
}

void EditedPaths::replaceLeaf(const pm::MetadataPath& from, const pm::MetadataPath& to) {
    make(to);
    removed_.push_back(from);
    removedSet_.insert(from);
    gone_.push_back(from);
}

void EditedPaths::move(const pm::MetadataPath& from, const pm::MetadataPath& to, const OnCopy& onCopy) {
    tree();
    const bool staysBelow = from.getParent() == to.getParent();
    Branch& oldParent = *findBranch(from.getParent());
    Branch& newParent = *findBranch(to.getParent());
    const auto place = oldParent.places.at(from.getLeaf());
    Branch& target = newParent.insert(staysBelow ? place : newParent.children.end(), to.getLeaf());
    const auto progress = observer_.start("Reading");
    copyBranch(*place, from, to, target, onCopy, *progress);
    forget(*place, from);
    oldParent.children.erase(place);
    oldParent.places.erase(from.getLeaf());
}

void EditedPaths::copy(const pm::MetadataPath& from, const pm::MetadataPath& to, const OnCopy& onCopy) {
    tree();
    Branch& parent = *findBranch(to.getParent());
    Branch& target = parent.insert(parent.children.end(), to.getLeaf());
    const auto progress = observer_.start("Reading");
    copyBranch(*findBranch(from), from, to, target, onCopy, *progress);
}

void EditedPaths::settle(bool needsOrder) {
    if (hasBranches_ || needsOrder)
        tree();
}

void EditedPaths::finish(StoreChange& change) const {
    if (!tree_) {
        change.added = added_;
        change.removed = removed_;
        change.gone = gone_;
        return;
    }
    std::vector<pm::MetadataPath> after;
    listBranch(*tree_, {}, after);
    const PathSet kept(after.begin(), after.end());
    std::copy_if(after.begin(), after.end(), std::back_inserter(change.added),
                 [&](const pm::MetadataPath& path) { return beforeSet_.count(path) == 0; });
    std::copy_if(before_.begin(), before_.end(), std::back_inserter(change.removed),
                 [&](const pm::MetadataPath& path) { return kept.count(path) == 0; });
    if (after != before_)
        change.paths = std::move(after);
}

/// All paths, which are read when they are needed for the first time.
EditedPaths::Branch& EditedPaths::tree() {
    if (tree_)
        return *tree_;
    const auto progress = observer_.start("Reading");
    before_ = listPaths(store_, {}, *progress);
    beforeSet_ = PathSet(before_.begin(), before_.end());
    tree_ = std::make_unique<Branch>(pm::PathElement({}, {}));
    const std::vector<pm::MetadataPath> gone = std::exchange(gone_, {});
    removed_.clear();
    removedSet_.clear();
    for (const pm::MetadataPath& path : before_)
        make(path);
    for (const pm::MetadataPath& path : added_)
        make(path);
    for (const pm::MetadataPath& path : gone) {
        if (findBranch(path))
            removeBranch(path);
    }
    return *tree_;
}

/// @return null if there is no such path; there must be a tree
EditedPaths::Branch* EditedPaths::findBranch(const pm::MetadataPath& path) const {
    Branch* branch = tree_.get();
    for (const pm::PathElement& step : path.getPath()) {
        const auto place = branch->places.find(step);
        if (place == branch->places.end())
            return nullptr;
        branch = &*place->second;
    }
    return branch;
}

void EditedPaths::removeBranch(const pm::MetadataPath& path) {
    tree();
    forget(*findBranch(path), path);
    if (path.getPath().empty()) {
        tree_->places.clear();
        tree_->children.clear();
        return;
    }
    Branch& parent = *findBranch(path.getParent());
    const auto place = parent.places.find(path.getLeaf());
    parent.children.erase(place->second);
    parent.places.erase(place);
}

/// Makes `target` at `to` what `source` at `from` is.
void EditedPaths::copyBranch(const Branch& source, const pm::MetadataPath& from, const pm::MetadataPath& to,
                             Branch& target, const OnCopy& onCopy, Progress& progress) {
    progress.advance();
    onCopy(from, to);
    for (const Branch& child : source.children) {
        copyBranch(child, childPath(from, child.step), childPath(to, child.step),
                   target.insert(target.children.end(), child.step), onCopy, progress);
    }
}

/// Tells that `branch`, which is at `path`, goes.
void EditedPaths::forget(const Branch& branch, const pm::MetadataPath& path) const {
    onGone_(path);
    for (const Branch& child : branch.children)
        forget(child, childPath(path, child.step));
}

void EditedPaths::listBranch(const Branch& branch, const pm::MetadataPath& path, std::vector<pm::MetadataPath>& paths) {
    paths.push_back(path);
    for (const Branch& child : branch.children)
        listBranch(child, childPath(path, child.step), paths);
}

}  // namespace operations
