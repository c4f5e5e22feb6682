#include "PlainStore.hpp"

#include <algorithm>
#include <utility>

#include "host/FileSystem.hpp"
#include "project/metadata/CoreFile.hpp"
#include "project/metadata/MetadataErrors.hpp"
#include "project/metadata/MetadataNodeSpecification.hpp"
#include "store_support/EqualTrees.hpp"

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

template <class Nodes>
const MetadataNode* lookUp(const Nodes& nodes, const typename Nodes::key_type& steps) {
    const auto found = nodes.find(steps);
    return found == nodes.end() ? nullptr : found->second.get();
}

bool isSameContent(const Content& a, const Content& b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](const Entry& x, const Entry& y) {
        return x.path == y.path && store_support::equalTrees(x.node.get(), y.node.get());
    });
}

}  // namespace

store_support::StoreKind describe() {
    store_support::StoreKind kind;
    kind.name = storeName;
    kind.description = u"one plain file, to learn from";
    kind.open = [](const host::Path& folder, store_support::JobRunner runJob) {
        return std::make_unique<PlainStore>(folder, std::move(runJob));
    };
    kind.isAllInCoreFile = true;
    return kind;
}

PlainStore::PlainStore(const host::Path& folder, store_support::JobRunner runJob)
    : file_(folder / coreFileName()), runJob_(std::move(runJob)), seen_(listNodes(load(file_))) {}

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
    seen_[path.getPath()] = node;
    return node ? std::make_unique<MetadataNodeSpecification>(*node) : nullptr;
}

void PlainStore::setNodes(const std::map<MetadataPath, std::shared_ptr<MetadataNode>>& nodes) {
    change([&](Content& content) {
        for (const auto& [path, node] : nodes)
            add(content, path).node = node ? std::make_shared<MetadataNodeSpecification>(*node) : nullptr;
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
    Content before;
    Content after;
    const auto isNeeded = [&] {
        before = after = load(file_);
        edit(after);
        return !isSameContent(before, after) || !host::FileSystem::exists(file_);
    };
    if (!isNeeded())
        return;
    const store_support::FolderLock lock(file_.parentPath());
    // Somebody else may have been faster.
    if (!isNeeded())
        return;
    const Nodes changes = findChanges(before, after);
    runJob_(FileJob({file_}, {}, [&] { save(after, file_, lock); }));
    for (const auto& [steps, node] : changes)
        seen_[steps] = node;
}

PlainStore::Nodes PlainStore::listNodes(const Content& content) {
    Nodes nodes;
    for (const auto& [path, node] : content)
        nodes[path.getPath()] = node;
    return nodes;
}

PlainStore::Nodes PlainStore::findChanges(const Content& before, const Content& after) const {
    const Nodes old = listNodes(before);
    Nodes changes = listNodes(after);
    for (const auto& entry : old)
        changes.emplace(entry.first, nullptr);
    for (auto change = changes.begin(); change != changes.end();) {
        const MetadataNode* const node = lookUp(old, change->first);
        const bool isNew = old.count(change->first) == 0;
        if (!isNew && store_support::equalTrees(node, change->second.get())) {
            change = changes.erase(change);
            continue;
        }
        if (!store_support::equalTrees(node, lookUp(seen_, change->first))) {
            raise<MetadataWriteFailure>(
                file_.text(), u"somebody else changed the node at \"" + MetadataPath(change->first).string() + u"\"");
        }
        ++change;
    }
    return changes;
}

}  // namespace plain
