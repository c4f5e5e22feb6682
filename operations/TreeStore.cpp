#include "operations/TreeStore.hpp"

#include <utility>

#include "operations/Errors.hpp"
#include "operations/Project.hpp"
#include "project/metadata/MetadataNodeSpecification.hpp"

namespace operations {

TreeStore::TreeStore(MetadataTree tree) : tree_(std::move(tree)) {
    places_.emplace(pm::MetadataPath(), nullptr);  // the root path is there, whatever the file holds
    index(tree_.rootPath(), tree_.root);
}

void TreeStore::index(const pm::MetadataPath& path, const PathTree& tree) {
    places_[path] = &tree;
    for (const PathTree& child : tree.children)
        index(childPath(path, child.step), child);
}

const PathTree* TreeStore::find(const pm::MetadataPath& path) const {
    const auto place = places_.find(path);
    return place == places_.end() ? nullptr : place->second;
}

std::unique_ptr<pm::MetadataNode> TreeStore::getNode(const pm::MetadataPath& path) const {
    const PathTree* const tree = find(path);
    return tree && tree->node ? std::make_unique<pm::MetadataNodeSpecification>(*tree->node) : nullptr;
}

bool TreeStore::hasNode(const pm::MetadataPath& path) const {
    const PathTree* const tree = find(path);
    return tree && tree->node;
}

std::vector<pm::MetadataPath> TreeStore::getChildren(const pm::MetadataPath& path) const {
    std::vector<pm::MetadataPath> children;
    if (const PathTree* const tree = find(path)) {
        for (const PathTree& child : tree->children)
            children.push_back(childPath(path, child.step));
    } else if (path.getPath().empty()) {
        children.push_back(tree_.rootPath());
    }
    return children;
}

bool TreeStore::hasPath(const pm::MetadataPath& path) const {
    return places_.count(path) > 0;
}

void TreeStore::refuse() {
    throw OperationError(ErrorKind::failure, "A file of metadata is only looked at, and never changed");
}

std::unique_ptr<pm::MetadataManager> openForReading(const host::Path& place, Observer& observer) {
    if (!isFile(place.accessName()))
        return openProject(place);
    MetadataTree tree = readTree(place, observer);
    if (tree.form == TreeForm::empty) {
        throw OperationError(ErrorKind::notAProject,
                             quoted(place) + " is no folder, so it cannot be a project, and as a file it is empty");
    }
    return std::make_unique<TreeStore>(std::move(tree));
}

}  // namespace operations
