#include "cli/TreeWalk.hpp"

#include <string>
#include <utility>

#include "cli/text/Errors.hpp"
#include "cli/text/Output.hpp"
#include "cli/text/PathText.hpp"
#include "host/Interruption.hpp"
#include "project/metadata/MetadataErrors.hpp"

namespace cli {

namespace pm = project::metadata;

TreeWalk::TreeWalk(const pm::MetadataManager& store, const pm::MetadataPath& start, std::size_t maxDepth, bool tells)
    : store_(store), maxDepth_(maxDepth), tells_(tells), children_{start} {
    requirePath(store, start);
}

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
    if (tells_) {
        flushOutput();
        reportCurrentException();
    }
    unreadableCount_ += isUnreadable_ ? 0 : 1;
    isUnreadable_ = true;
}

Status TreeWalk::finish(Status status) const {
    if (unreadableCount_ == 0)
        return status;
    flushOutput();
    reportError(formatCount(unreadableCount_, "path") +
                " could not be read; \"project-metadata check\" says what is damaged");
    return Status::foundProblems;
}

}  // namespace cli
