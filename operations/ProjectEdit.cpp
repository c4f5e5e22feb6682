#include "operations/ProjectEdit.hpp"

#include <algorithm>
#include <iterator>

#include "operations/EditedPaths.hpp"
#include "operations/TreeWalk.hpp"
#include "operations/WayBack.hpp"
#include "project/metadata/MetadataNodeSpecification.hpp"
#include "project/metadata/PathRenamer.hpp"
#include "store_support/EqualTrees.hpp"

namespace operations {

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

    NodePtr wanted() const { return draft ? NodePtr(operations::makeNode(*draft)) : node; }
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

ProjectEdit::ProjectEdit(pm::MetadataManager& store, Observer& observer)
    : store_(store), paths_(std::make_unique<EditedPaths>(store, observer, [this](const pm::MetadataPath& path) {
          setNode(path, nullptr);
      })) {}

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
        paths_->make(address.path);
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
    if (!place) {
        paths_->addLast(path);
        return address;
    }
    const NodeAddress& sibling = place->sibling;
    if (!sibling.inside.empty() || sibling.path.getPath().empty() || sibling.path.getParent() != path.getParent())
        refuseSibling(sibling, address);
    requirePath(sibling.path);
    paths_->addBeside(path, sibling.path, place->side == Place::Side::before);
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
    paths_->remove(address.path);
}

void ProjectEdit::removeNode(const pm::MetadataPath& path) {
    settleRenaming();
    requirePath(path);
    Content& content = contentOf(path);
    if (!content.draft && !content.node)
        throw AddressError(ErrorKind::failure, {"There is no node at ", NodeAddress{path}, ", only a branch"});
    content.set(nullptr);
    paths_->allowBranch(path);
}

void ProjectEdit::move(const pm::MetadataPath& from, const pm::MetadataPath& to) {
    settleRenaming();
    requireTarget(from, to, "moved");
    if (canRename(from, to))
        renaming_.emplace(from, to);
    else
        moveInTree(from, to);
}

/// Whether the store itself can make `to` of `from`, and nothing else has been changed.
bool ProjectEdit::canRename(const pm::MetadataPath& from, const pm::MetadataPath& to) const {
    const bool isFirst =
        paths_->areUntouched() &&
        std::none_of(contents_.begin(), contents_.end(), [](const auto& entry) { return entry.second.isChanged; });
    return isFirst && dynamic_cast<const pm::PathRenamer*>(&store_) && from.getParent() == to.getParent() &&
           store_.getChildren(from).empty();
}

/// Does what was left to the store, since there is something else to do.
void ProjectEdit::settleRenaming() {
    if (const auto renaming = std::exchange(renaming_, std::nullopt))
        moveInTree(renaming->first, renaming->second);
}

/// Moves without the help of the store.
void ProjectEdit::moveInTree(const pm::MetadataPath& from, const pm::MetadataPath& to) {
    if (!moveLeaf(from, to))
        paths_->move(from, to, copyNode());
}

/// Moves a path with a node and nothing below it as the first of all changes of paths, if that needs no order: what it
/// becomes is the last of its siblings. Then there is no need to know all other paths.
/// @return whether that could be done
bool ProjectEdit::moveLeaf(const pm::MetadataPath& from, const pm::MetadataPath& to) {
    if (!paths_->areUntouched() || !store_.getChildren(from).empty())
        return false;
    const Content& content = contentOf(from);
    if (!content.draft && !content.node)
        return false;
    if (from.getParent() == to.getParent() && store_.getChildren(from.getParent()).back() != from)
        return false;
    const NodePtr node = content.wanted();
    paths_->replaceLeaf(from, to);
    contentOf(to).set(node);
    contentOf(from).set(nullptr);
    return true;
}

void ProjectEdit::copy(const pm::MetadataPath& from, const pm::MetadataPath& to) {
    settleRenaming();
    requireTarget(from, to, "copied");
    paths_->copy(from, to, copyNode());
}

bool ProjectEdit::hasPath(const pm::MetadataPath& path) {
    settleRenaming();
    return paths_->has(path);
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
        newNodes += content.isChanged && paths_->isAdded(path) ? 1U : 0U;
    paths_->settle(newNodes > 1);
    for (auto& [path, content] : contents_) {
        if (!content.isChanged || !paths_->has(path))
            continue;
        if (!content.isStoredKnown)
            content.stored = paths_->wasThere(path) ? NodePtr(store_.getNode(path)) : nullptr;
        NodePtr wanted = content.wanted();
        if (store_support::equalTrees(wanted.get(), content.stored.get()))
            continue;
        if (paths_->wasThere(path))
            change.updated.push_back(path);
        change.nodes.emplace_back(path, std::move(wanted));
    }
    paths_->finish(change);
    // With everything else, the node of the root path goes in the same batch.
    if (std::find(change.gone.begin(), change.gone.end(), pm::MetadataPath()) != change.gone.end()) {
        const auto isRoot = [](const auto& entry) { return entry.first.getPath().empty(); };
        change.nodes.erase(std::remove_if(change.nodes.begin(), change.nodes.end(), isRoot), change.nodes.end());
    }
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
    paths_->make(above.path);
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

void ProjectEdit::requirePath(const pm::MetadataPath& path, const std::string& advice) {
    if (hasPath(path))
        return;
    pm::MetadataPath above = path.getParent();
    while (!hasPath(above))
        above = above.getParent();
    std::vector<pm::PathElement> siblings = paths_->listChildren(above);
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

/// Makes the node of one path that of another, too.
EditedPaths::OnCopy ProjectEdit::copyNode() {
    return [this](const pm::MetadataPath& from, const pm::MetadataPath& to) { setNode(to, contentOf(from).wanted()); };
}

/// Gives `path` a node, or none, whatever it had before: that is not of interest any more.
void ProjectEdit::setNode(const pm::MetadataPath& path, const NodePtr& node) {
    const auto [place, isNew] = contents_.try_emplace(path);
    if (isNew)
        place->second.isStoredKnown = false;
    place->second.set(node);
}

void ProjectEdit::apply(const StoreChange& change) {
    applyOrTakeBack(store_, change, [&](const pm::MetadataPath& path) { return contents_.at(path).stored; });
}

}  // namespace operations
