#include "operations/TreeWalk.hpp"

#include <algorithm>
#include <utility>

#include "host/Interruption.hpp"

namespace operations {

TreeWalk::TreeWalk(const pm::MetadataManager& store, const pm::MetadataPath& start, std::size_t maxDepth,
                   std::function<void()> onError)
    : store_(store), reading_(store), maxDepth_(maxDepth), onError_(std::move(onError)), children_{start} {}

bool TreeWalk::next() {
    host::Interruption::throwIfRequested();
    if (!children_.empty())
        levels_.push_back({std::move(children_), 0});
    while (!levels_.empty() && levels_.back().next == levels_.back().siblings.size())
        levels_.pop_back();
    children_.clear();
    if (levels_.empty())
        return false;
    ++levels_.back().next;
    isUnreadable_ = false;
    if (depth() < maxDepth_)
        listChildren();
    return true;
}

const pm::MetadataPath& TreeWalk::path() const {
    const Level& level = levels_.back();
    return level.siblings[level.next - 1];
}

bool TreeWalk::isLast() const {
    return levels_.back().next == levels_.back().siblings.size();
}

std::unique_ptr<pm::MetadataNode> TreeWalk::readNode() {
    try {
        return store_.getNode(path());
    } catch (const pm::MetadataReadFailure&) {
        noteError();
        return nullptr;
    }
}

void TreeWalk::listChildren() {
    try {
        children_ = store_.getChildren(path());
    } catch (const project::exception::ProjectException&) {
        if (depth() == 0)
            throw;
        noteError();
    }
}

/// Called while the error is handled.
void TreeWalk::noteError() {
    if (!onError_)
        throw;
    onError_();
    unreadableCount_ += isUnreadable_ ? 0 : 1;
    isUnreadable_ = true;
}

bool isAtOrBelow(const pm::MetadataPath& path, const pm::MetadataPath& top) {
    const auto& steps = path.getPath();
    const auto& topSteps = top.getPath();
    return steps.size() >= topSteps.size() && std::equal(topSteps.begin(), topSteps.end(), steps.begin());
}

std::vector<pm::MetadataPath> listPaths(const pm::MetadataManager& store, const pm::MetadataPath& top,
                                        Progress& progress) {
    std::vector<pm::MetadataPath> paths;
    for (TreeWalk walk(store, top); walk.next(); progress.advance())
        paths.push_back(walk.path());
    return paths;
}

}  // namespace operations
