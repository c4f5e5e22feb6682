#include "PlainStore.hpp"

#include <algorithm>
#include <utility>

#include <cppmicroservices/ServiceReference.h>

#include "host/FileSystem.hpp"
#include "project/metadata/FileJobManager.hpp"
#include "project/metadata/MetadataErrors.hpp"
#include "project/metadata/MetadataNodeSpecification.hpp"
#include "project/metadata/ProjectMetadataLocation.hpp"

namespace plain {

using namespace project::metadata;

namespace {

/// The entry at `path`, null if there is none.
template <class AnyContent>
auto find(AnyContent& content, const MetadataPath& path) {
    const auto found =
        std::find_if(content.begin(), content.end(), [&](const Entry& entry) { return entry.path == path; });
    return found == content.end() ? nullptr : &*found;
}

/// The entry at `path`, added after its missing ancestors if there is none.
Entry& add(Content& content, const MetadataPath& path) {
    if (Entry* const entry = find(content, path))
        return *entry;
    add(content, path.getParent());
    content.push_back({path, nullptr});
    return content.back();
}

/// Whether `path` is `top` or lies below it.
bool isIn(const MetadataPath& top, const MetadataPath& path) {
    const auto& steps = top.getPath();
    return path.getPath().size() >= steps.size() && std::equal(steps.begin(), steps.end(), path.getPath().begin());
}

void remove(Content& content, const MetadataPath& path) {
    const auto isRemoved = [&](const Entry& entry) { return isIn(path, entry.path); };
    content.erase(std::remove_if(content.begin(), content.end(), isRemoved), content.end());
    if (content.empty())
        content.emplace_back();
}

NodePointer lookUp(const std::map<std::u16string, NodePointer>& nodes, const std::u16string& key) {
    const auto found = nodes.find(key);
    return found == nodes.end() ? nullptr : found->second;
}

std::map<std::u16string, NodePointer> listNodes(const Content& content) {
    std::map<std::u16string, NodePointer> nodes;
    for (const auto& [path, node] : content)
        nodes[makeKey(path)] = node;
    return nodes;
}

bool isSameContent(const Content& a, const Content& b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](const Entry& x, const Entry& y) { return x.path == y.path && isSame(x.node, y.node); });
}

}  // namespace

std::unique_ptr<MetadataManager> PlainFactory::createManager(const host::Path& root) {
    const ProjectMetadataLocation location(root);
    if (location.hasCoreFile() && !canManage(root))
        raise<MetadataReadFailure>(location.getCoreFile().text(), u"its metadata is not of the type \"plain\"");
    return std::make_unique<PlainStore>(root, location.getCoreFile(), [context = context_](FileJob job) mutable {
        std::shared_ptr<FileJobManager> manager;
        // A store can still be saved when its plug-in has stopped, and the context with it.
        if (context) {
            if (const auto reference = context.GetServiceReference<FileJobManager>())
                manager = context.GetService(reference);
        }
        (manager ? manager : std::make_shared<FileJobManager>())->process({std::move(job)});
    });
}

bool PlainFactory::canManage(const host::Path& root) {
    return ProjectMetadataLocation(root).getMetadataType() == storeName;
}

PlainStore::PlainStore(const host::Path& root, const host::Path& file, JobRunner runJob)
    : root_(root), file_(file), runJob_(std::move(runJob)), seen_(listNodes(load(file))) {}

void PlainStore::setNode(const MetadataPath& path, const MetadataNode& node) {
    change([&](Content& content) { add(content, path).node = std::make_shared<MetadataNodeSpecification>(node); });
}

void PlainStore::removeNode(const MetadataPath& path) {
    if (!host::FileSystem::exists(file_))
        return;
    change([&](Content& content) {
        if (Entry* const entry = find(content, path))
            entry->node = nullptr;
    });
}

void PlainStore::addPath(const MetadataPath& path) {
    change([&](Content& content) { add(content, path); });
}

void PlainStore::removePath(const MetadataPath& path) {
    removePaths({path});
}

std::unique_ptr<MetadataNode> PlainStore::getNode(const MetadataPath& path) const {
    const Content content = load(file_);
    const Entry* const entry = find(content, path);
    const NodePointer node = entry ? entry->node : nullptr;
    seen_[makeKey(path)] = node;
    return node ? std::make_unique<MetadataNodeSpecification>(*node) : nullptr;
}

void PlainStore::setNodes(const std::map<MetadataPath, std::shared_ptr<MetadataNode>>& nodes) {
    change([&](Content& content) {
        for (const auto& [path, node] : nodes)
            add(content, path).node = std::make_shared<MetadataNodeSpecification>(*node);
    });
}

void PlainStore::removePaths(const std::vector<MetadataPath>& paths) {
    if (!host::FileSystem::exists(file_))
        return;
    change([&](Content& content) {
        for (const MetadataPath& path : paths)
            remove(content, path);
    });
}

bool PlainStore::hasNode(const MetadataPath& path) const {
    return getNode(path) != nullptr;
}

std::vector<MetadataPath> PlainStore::getChildren(const MetadataPath& path) const {
    std::vector<MetadataPath> children;
    for (const Entry& entry : load(file_)) {
        if (entry.path.getPath().size() == path.getPath().size() + 1 && isIn(path, entry.path))
            children.push_back(entry.path);
    }
    return children;
}

bool PlainStore::hasPath(const MetadataPath& path) const {
    const Content content = load(file_);
    return find(content, path) != nullptr;
}

void PlainStore::setPaths(const std::vector<MetadataPath>& paths) {
    change([&](Content& content) {
        Content arranged(1);
        for (const MetadataPath& path : paths)
            add(arranged, path);
        const bool keepsRoot = std::find(paths.begin(), paths.end(), MetadataPath()) != paths.end();
        for (Entry& entry : arranged) {
            const Entry* const old = find(content, entry.path);
            if (old && (keepsRoot || !entry.path.getPath().empty()))
                entry.node = old->node;
        }
        content = std::move(arranged);
    });
}

void PlainStore::change(const std::function<void(Content& content)>& edit) {
    const Lock lock(root_);
    const Content before = load(file_);
    Content after = before;
    edit(after);
    if (isSameContent(before, after) && host::FileSystem::exists(file_))
        return;
    const Nodes changes = findChanges(before, after);
    runJob_(FileJob({file_}, {}, [&] { save(after, file_); }));
    for (const auto& [key, node] : changes)
        seen_[key] = node;
}

PlainStore::Nodes PlainStore::findChanges(const Content& before, const Content& after) const {
    const Nodes old = listNodes(before);
    Nodes changes = listNodes(after);
    for (const auto& entry : old)
        changes.emplace(entry.first, nullptr);
    for (auto change = changes.begin(); change != changes.end();) {
        const NodePointer node = lookUp(old, change->first);
        if (isSame(node, change->second)) {
            change = changes.erase(change);
            continue;
        }
        if (!isSame(node, lookUp(seen_, change->first)))
            raise<MetadataWriteFailure>(file_.text(), u"somebody else changed the node at " + change->first);
        ++change;
    }
    return changes;
}

}  // namespace plain
