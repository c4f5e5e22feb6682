#include "operations/ProjectEdit.hpp"

#include <algorithm>
#include <iterator>
#include <utility>

#include "host/Text.hpp"
#include "operations/TreeWalk.hpp"
#include "operations/WayBack.hpp"
#include "project/metadata/MetadataNodeSpecification.hpp"
#include "project/metadata/PathRenamer.hpp"
#include "store_support/EqualTrees.hpp"

namespace operations {

namespace pm = project::metadata;

/// A path, by its last step, with what is below it. It is moved, never copied.
struct ProjectEdit::Branch {
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

/// The node of a path.
struct ProjectEdit::Content {
    NodePtr stored;             ///< what the store has; null also for a path that is not there
    bool isStoredKnown = true;  ///< false: `stored` was not asked for
    NodePtr node;               ///< what it is to be, unless there is a draft
    std::optional<NodeDraft> draft;
    bool isChanged = false;

    void set(NodePtr wanted) {
        node = std::move(wanted);
        draft.reset();
        isChanged = true;
    }
};

namespace {

std::optional<std::size_t> findDraft(const NodeDraft& node, const NodeAddress& address, std::size_t depth) {
    return findChild(
        node.children.size(), [&](std::size_t i) -> const std::u16string& { return node.children[i].name; }, address,
        depth);
}

std::size_t countDrafts(const NodeDraft& node, const std::u16string& name) {
    return static_cast<std::size_t>(std::count_if(node.children.begin(), node.children.end(),
                                                  [&](const NodeDraft& child) { return child.name == name; }));
}

/// The child node that the step `depth` of `address` leads to.
NodeDraft& requireDraft(NodeDraft& node, const NodeAddress& address, std::size_t depth) {
    const auto place = findDraft(node, address, depth);
    if (!place)
        throw makeMissing(address, depth);
    return node.children[*place];
}

[[noreturn]] void refuseSibling(const NodeAddress& sibling, const NodeAddress& address) {
    throw AddressError(ErrorKind::usage, {sibling, " is no sibling of ", address, ": it lies below something else"});
}

}  // namespace

ProjectEdit::ProjectEdit(pm::MetadataManager& store, Observer& observer) : store_(store), observer_(observer) {}

ProjectEdit::~ProjectEdit() = default;

void ProjectEdit::set(const NodeAddress& address, const AttributeChanges& changes, const SetRequest& request) {
    settleRenaming();
    if (!request.create)
        requirePath(address.path, "; --create adds it");
    if (request.nodeName && !address.inside.empty())
        throw AddressError(ErrorKind::usage, {"A node at ", address, " has the name that is in its address"});
    const Content& content = contentOf(address.path);
    const bool hasNode = content.draft || content.node;
    if (hasNode && request.nodeName) {
        const std::u16string& name = content.draft ? content.draft->name : content.node->getName();
        if (name != *request.nodeName) {
            throw AddressError(ErrorKind::failure,
                               {"The node at ", address,
                                " has the name \"" + host::toUtf8(name) + "\", which cannot be changed to \"" +
                                    host::toUtf8(*request.nodeName) + '"'});
        }
    }
    const auto apply = [&](NodeDraft& node) {
        for (const auto& [key, value] : changes)
            node.attributes[key] = *value;
    };
    if (request.create || address.inside.empty()) {
        makePath(address.path);
        if (!hasNode)
            contentOf(address.path).draft.emplace().name = request.nodeName.value_or(pm::getDefaultMetadataNodeName());
        apply(makeNode(address));
    } else {
        apply(requireNode(address));
    }
}

std::vector<std::u16string> ProjectEdit::unset(const NodeAddress& address, const std::vector<std::u16string>& keys) {
    settleRenaming();
    requirePath(address.path);
    const Content& content = contentOf(address.path);
    if (address.inside.empty() && !content.draft && !content.node)
        return keys;
    NodeDraft& node = requireNode(address);
    std::vector<std::u16string> missing;
    std::copy_if(keys.begin(), keys.end(), std::back_inserter(missing),
                 [&](const std::u16string& key) { return node.attributes.count(key) == 0; });
    if (missing.empty()) {
        for (const std::u16string& key : keys)
            node.attributes.erase(key);
    }
    return missing;
}

NodeAddress ProjectEdit::add(const NodeAddress& address, const std::optional<Place>& place) {
    settleRenaming();
    if (!address.inside.empty())
        return addChild(address, place);
    const pm::MetadataPath& path = address.path;
    if (hasPath(path))
        throw AddressError(ErrorKind::failure, {"There is a path ", address, " already"});
    hasBranches_ = true;
    if (!place) {
        makePath(path);
        return address;
    }
    const NodeAddress& sibling = place->sibling;
    if (!sibling.inside.empty() || sibling.path.getPath().empty() || sibling.path.getParent() != path.getParent())
        refuseSibling(sibling, address);
    requirePath(sibling.path);
    tree();
    Branch& parent = *findBranch(path.getParent());
    const auto next = parent.places.at(sibling.path.getLeaf());
    parent.insert(place->side == Place::Side::before ? next : std::next(next), path.getLeaf());
    return address;
}

void ProjectEdit::remove(const NodeAddress& address) {
    settleRenaming();
    requirePath(address.path);
    if (!address.inside.empty()) {
        NodeAddress above = address;
        above.inside.pop_back();
        NodeDraft& parent = requireNode(above);
        const NodeDraft& child = requireDraft(parent, address, address.inside.size() - 1);
        parent.children.erase(parent.children.begin() + (&child - parent.children.data()));
        return;
    }
    if (tree_ || !added_.empty()) {
        removeBranch(address.path);
        return;
    }
    const auto progress = observer_.start("Reading");
    for (pm::MetadataPath& path : listPaths(store_, address.path, *progress)) {
        if (removedSet_.insert(path).second)
            removed_.push_back(std::move(path));
    }
    gone_.push_back(address.path);
}

void ProjectEdit::removeBranch(const pm::MetadataPath& path) {
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

void ProjectEdit::removeNode(const pm::MetadataPath& path) {
    settleRenaming();
    requirePath(path);
    Content& content = contentOf(path);
    if (!content.draft && !content.node)
        throw AddressError(ErrorKind::failure, {"There is no node at ", NodeAddress{path}, ", only a branch"});
    content.set(nullptr);
    hasBranches_ = hasBranches_ || addedSet_.count(path) > 0;
}

void ProjectEdit::move(const pm::MetadataPath& from, const pm::MetadataPath& to) {
    settleRenaming();
    requireTarget(from, to, "moved");
    if (canRename(from, to))
        renaming_.emplace(from, to);
    else if (!moveLeaf(from, to))
        moveBranch(from, to);
}

/// Whether the store itself can make `to` of `from`, and nothing else has been changed.
bool ProjectEdit::canRename(const pm::MetadataPath& from, const pm::MetadataPath& to) const {
    const bool isFirst =
        !tree_ && !hasBranches_ && added_.empty() && removed_.empty() &&
        std::none_of(contents_.begin(), contents_.end(), [](const auto& entry) { return entry.second.isChanged; });
    return isFirst && dynamic_cast<const pm::PathRenamer*>(&store_) && from.getParent() == to.getParent() &&
           store_.getChildren(from).empty();
}

/// Does what was left to the store, since there is something else to do.
void ProjectEdit::settleRenaming() {
    if (const auto renaming = std::exchange(renaming_, std::nullopt)) {
        if (!moveLeaf(renaming->first, renaming->second))
            moveBranch(renaming->first, renaming->second);
    }
}

void ProjectEdit::moveBranch(const pm::MetadataPath& from, const pm::MetadataPath& to) {
    tree();
    const bool staysBelow = from.getParent() == to.getParent();
    Branch& oldParent = *findBranch(from.getParent());
    Branch& newParent = *findBranch(to.getParent());
    const auto place = oldParent.places.at(from.getLeaf());
    Branch& target = newParent.insert(staysBelow ? place : newParent.children.end(), to.getLeaf());
    const auto progress = observer_.start("Reading");
    fillCopy(*place, from, to, target, *progress);
    forget(*place, from);
    oldParent.children.erase(place);
    oldParent.places.erase(from.getLeaf());
}

/// Moves a path with a node and nothing below it as the first of all changes of paths, if that needs no order: what it
/// becomes is the last of its siblings. Then there is no need to know all other paths.
/// @return whether that could be done
bool ProjectEdit::moveLeaf(const pm::MetadataPath& from, const pm::MetadataPath& to) {
    if (tree_ || hasBranches_ || !added_.empty() || !removed_.empty() || !store_.getChildren(from).empty())
        return false;
    const Content& content = contentOf(from);
    if (!content.draft && !content.node)
        return false;
    if (from.getParent() == to.getParent() && store_.getChildren(from.getParent()).back() != from)
        return false;
    const NodePtr node = content.draft ? NodePtr(operations::makeNode(*content.draft)) : content.node;
    makePath(to);
    contentOf(to).set(node);
    contentOf(from).set(nullptr);
    removed_.push_back(from);
    removedSet_.insert(from);
    gone_.push_back(from);
    return true;
}

void ProjectEdit::copy(const pm::MetadataPath& from, const pm::MetadataPath& to) {
    settleRenaming();
    requireTarget(from, to, "copied");
    tree();
    Branch& parent = *findBranch(to.getParent());
    Branch& target = parent.insert(parent.children.end(), to.getLeaf());
    const auto progress = observer_.start("Reading");
    fillCopy(*findBranch(from), from, to, target, *progress);
}

bool ProjectEdit::hasPath(const pm::MetadataPath& path) {
    settleRenaming();
    if (tree_)
        return findBranch(path) != nullptr;
    return removedSet_.count(path) == 0 && (addedSet_.count(path) > 0 || store_.hasPath(path));
}

bool ProjectEdit::hasNode(const NodeAddress& address) {
    if (!hasPath(address.path))
        return false;
    const Content& content = contentOf(address.path);
    if (!content.draft)
        return findNode(content.node.get(), address) != nullptr;
    const NodeDraft* node = &*content.draft;
    for (std::size_t depth = 0; depth < address.inside.size(); ++depth) {
        const auto place = findDraft(*node, address, depth);
        if (!place)
            return false;
        node = &node->children[*place];
    }
    return true;
}

StoreChange ProjectEdit::finish() {
    StoreChange change;
    if (renaming_) {
        const auto& [from, to] = *renaming_;
        change.renamed.emplace(from, to.getLeaf());
        change.added.push_back(to);
        change.removed.push_back(from);
        return change;
    }
    // Nodes say only of one new path where it is to be.
    std::size_t newNodes = 0;
    for (const auto& [path, content] : contents_)
        newNodes += content.isChanged ? addedSet_.count(path) : 0;
    if (hasBranches_ || newNodes > 1)
        tree();

    const PathSet before(before_.begin(), before_.end());
    const auto wasThere = [&](const pm::MetadataPath& path) {
        return tree_ ? before.count(path) > 0 : addedSet_.count(path) == 0;
    };
    for (auto& [path, content] : contents_) {
        if (!content.isChanged || !hasPath(path))
            continue;
        if (!content.isStoredKnown)
            content.stored = wasThere(path) ? NodePtr(store_.getNode(path)) : nullptr;
        NodePtr wanted = content.draft ? NodePtr(operations::makeNode(*content.draft)) : content.node;
        if (store_support::equalTrees(wanted.get(), content.stored.get()))
            continue;
        if (wasThere(path))
            change.updated.push_back(path);
        change.nodes.emplace_back(path, std::move(wanted));
    }
    if (!tree_) {
        change.added = added_;
        change.removed = removed_;
        change.gone = gone_;
        return change;
    }

    std::vector<pm::MetadataPath> after;
    listBranch(*tree_, {}, after);
    const PathSet kept(after.begin(), after.end());
    std::copy_if(after.begin(), after.end(), std::back_inserter(change.added),
                 [&](const pm::MetadataPath& path) { return before.count(path) == 0; });
    std::copy_if(before_.begin(), before_.end(), std::back_inserter(change.removed),
                 [&](const pm::MetadataPath& path) { return kept.count(path) == 0; });
    if (after != before_)
        change.paths = std::move(after);
    return change;
}

/// What is known of the node of `path`, which may be missing.
ProjectEdit::Content& ProjectEdit::contentOf(const pm::MetadataPath& path) {
    const auto known = contents_.find(path);
    if (known != contents_.end())
        return known->second;
    Content content;
    content.stored = store_.getNode(path);
    content.node = content.stored;
    return contents_.emplace(path, std::move(content)).first->second;
}

/// The node of `path`, which has one, to be changed.
NodeDraft& ProjectEdit::editNode(const pm::MetadataPath& path) {
    Content& content = contentOf(path);
    if (!content.draft)
        content.draft = makeDraft(*content.node);
    content.isChanged = true;
    return *content.draft;
}

NodeDraft& ProjectEdit::requireNode(const NodeAddress& address) {
    requirePath(address.path);
    const Content& content = contentOf(address.path);
    if (!content.draft && !content.node) {
        throw AddressError(ErrorKind::failure, {"There is no node at ", NodeAddress{address.path}, ", only a branch"});
    }
    NodeDraft* node = &editNode(address.path);
    for (std::size_t depth = 0; depth < address.inside.size(); ++depth)
        node = &requireDraft(*node, address, depth);
    return *node;
}

/// As `requireNode`, but makes what is missing; the path must be there.
NodeDraft& ProjectEdit::makeNode(const NodeAddress& address) {
    Content& content = contentOf(address.path);
    if (!content.draft && !content.node)
        content.draft.emplace().name = pm::getDefaultMetadataNodeName();
    NodeDraft* node = &editNode(address.path);
    for (std::size_t depth = 0; depth < address.inside.size(); ++depth) {
        const NodeStep& step = address.inside[depth];
        if (const auto place = findDraft(*node, address, depth)) {
            node = &node->children[*place];
            continue;
        }
        if (step.position > countDrafts(*node, step.name) + 1)
            throw makeMissing(address, depth);
        node->children.push_back({step.name, {}, {}});
        node = &node->children.back();
    }
    return *node;
}

NodeAddress ProjectEdit::addChild(const NodeAddress& address, const std::optional<Place>& place) {
    NodeAddress above = address;
    const NodeStep step = above.inside.back();
    above.inside.pop_back();
    const auto isBeside = [&](const NodeAddress& sibling) {
        return sibling.path == above.path && sibling.inside.size() == address.inside.size() &&
               std::equal(above.inside.begin(), above.inside.end(), sibling.inside.begin());
    };
    if (place && !isBeside(place->sibling))
        refuseSibling(place->sibling, address);
    makePath(above.path);
    NodeDraft& parent = makeNode(above);
    const std::size_t count = countDrafts(parent, step.name);
    if (step.position != 0 && step.position != count + 1) {
        throw AddressError(ErrorKind::failure,
                           {address, " cannot be added: there are " + std::to_string(count) +
                                         " child nodes of that name; without a number, one more is added"});
    }
    std::size_t at = parent.children.size();
    if (place) {
        const NodeDraft& sibling = requireDraft(parent, place->sibling, above.inside.size());
        at = static_cast<std::size_t>(&sibling - parent.children.data()) + (place->side == Place::Side::before ? 0 : 1);
    }
    parent.children.insert(parent.children.begin() + static_cast<std::ptrdiff_t>(at), {step.name, {}, {}});
    std::size_t position = 0;
    for (std::size_t i = 0; i <= at; ++i)
        position += parent.children[i].name == step.name ? 1U : 0U;
    above.inside.push_back({step.name, count == 0 ? 0 : position});
    return above;
}

/// Adds `path` and what is missing above it, without nodes.
void ProjectEdit::makePath(const pm::MetadataPath& path) {
    std::vector<pm::PathElement> steps;
    Branch* branch = removed_.empty() ? tree_.get() : &tree();
    for (const pm::PathElement& step : path.getPath()) {
        steps.push_back(step);
        if (branch) {
            const auto known = branch->places.find(step);
            branch = known != branch->places.end() ? &*known->second : &branch->insert(branch->children.end(), step);
            continue;
        }
        pm::MetadataPath each(steps);
        if (!hasPath(each) && addedSet_.insert(each).second)
            added_.push_back(std::move(each));
    }
}

void ProjectEdit::requirePath(const pm::MetadataPath& path, const std::string& advice) {
    if (hasPath(path))
        return;
    pm::MetadataPath above = path.getParent();
    while (!hasPath(above))
        above = above.getParent();
    std::vector<pm::PathElement> siblings;
    if (tree_) {
        for (const Branch& child : findBranch(above)->children)
            siblings.push_back(child.step);
    } else {
        for (const pm::MetadataPath& child : store_.getChildren(above))
            siblings.push_back(child.getLeaf());
    }
    const pm::PathElement step = path.getPath()[above.getPath().size()];
    std::vector<AddressError::Piece> pieces{"There is no path ", NodeAddress{path}};
    if (advice.empty())
        pieces.insert(pieces.end(), {"; the nearest one above it is ", NodeAddress{std::move(above)}});
    else
        pieces.emplace_back(advice);
    throw MissingPath(std::move(pieces), step, std::move(siblings));
}

/// Sees to it that `from` can become `to`, or be copied there.
void ProjectEdit::requireTarget(const pm::MetadataPath& from, const pm::MetadataPath& to, const std::string& verb) {
    if (from.getPath().empty())
        throw OperationError(ErrorKind::usage, "The root path cannot be " + verb);
    requirePath(from);
    if (hasPath(to))
        throw AddressError(ErrorKind::failure, {"There is a path ", NodeAddress{to}, " already"});
    if (isAtOrBelow(to, from)) {
        throw AddressError(ErrorKind::usage,
                           {NodeAddress{from}, " cannot be " + verb + " into itself, to ", NodeAddress{to}});
    }
    requirePath(to.getParent(), " to be " + verb + " to; \"project-metadata add\" adds it");
}

/// Makes `target` at `to` what `source` at `from` is.
void ProjectEdit::fillCopy(const Branch& source, const pm::MetadataPath& from, const pm::MetadataPath& to,
                           Branch& target, Progress& progress) {
    progress.advance();
    const Content& content = contentOf(from);
    const NodePtr node = content.draft ? NodePtr(operations::makeNode(*content.draft)) : content.node;
    // What the path had before it was removed is not of interest any more.
    const auto [place, isNew] = contents_.try_emplace(to);
    if (isNew)
        place->second.isStoredKnown = false;
    place->second.set(node);
    for (const Branch& child : source.children) {
        fillCopy(child, childPath(from, child.step), childPath(to, child.step),
                 target.insert(target.children.end(), child.step), progress);
    }
}

/// Notes that the nodes of `branch`, which is at `path`, go.
void ProjectEdit::forget(const Branch& branch, const pm::MetadataPath& path) {
    const auto [place, isNew] = contents_.try_emplace(path);
    if (isNew)
        place->second.isStoredKnown = false;
    place->second.set(nullptr);
    for (const Branch& child : branch.children)
        forget(child, childPath(path, child.step));
}

/// All paths, which are read when they are needed for the first time.
ProjectEdit::Branch& ProjectEdit::tree() {
    if (tree_)
        return *tree_;
    const auto progress = observer_.start("Reading");
    before_ = listPaths(store_, {}, *progress);
    tree_ = std::make_unique<Branch>(pm::PathElement({}, {}));
    const std::vector<pm::MetadataPath> gone = std::exchange(gone_, {});
    removed_.clear();
    removedSet_.clear();
    for (const pm::MetadataPath& path : before_)
        makePath(path);
    for (const pm::MetadataPath& path : added_)
        makePath(path);
    for (const pm::MetadataPath& path : gone) {
        if (findBranch(path))
            removeBranch(path);
    }
    return *tree_;
}

/// @return null if there is no such path; there must be a tree
ProjectEdit::Branch* ProjectEdit::findBranch(const pm::MetadataPath& path) {
    Branch* branch = tree_.get();
    for (const pm::PathElement& step : path.getPath()) {
        const auto place = branch->places.find(step);
        if (place == branch->places.end())
            return nullptr;
        branch = &*place->second;
    }
    return branch;
}

void ProjectEdit::listBranch(const Branch& branch, const pm::MetadataPath& path, std::vector<pm::MetadataPath>& paths) {
    paths.push_back(path);
    for (const Branch& child : branch.children)
        listBranch(child, childPath(path, child.step), paths);
}

void ProjectEdit::apply(const StoreChange& change) {
    applyOrTakeBack(store_, change, [&](const pm::MetadataPath& path) { return contents_.at(path).stored; });
}

}  // namespace operations
