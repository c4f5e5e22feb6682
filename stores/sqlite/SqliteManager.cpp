#include "stores/sqlite/SqliteManager.hpp"

#include <utility>

#include "store_support/BatchJournal.hpp"
#include "store_support/NodeBlob.hpp"
#include "store_support/StoreFiles.hpp"
#include "store_support/TreeRules.hpp"
#include "stores/sqlite/Damage.hpp"

namespace stores::sqlite {

SqliteManager::SqliteManager(const Path& folder, JobRunner runJob, std::chrono::milliseconds limit)
    : database_(folder, std::move(runJob), limit) {}

void SqliteManager::setNode(const MetadataPath& path, const MetadataNode& node) {
    requireStorable(node, database_.getFile());
    const NodeValue value = encodeNode(node);
    database_.change([&](PathEdit& edit) { return edit.setNode(path, value); });
}

void SqliteManager::removeNode(const MetadataPath& path) {
    if (database_.open())
        database_.change([&](PathEdit& edit) { return edit.removeNode(path); });
}

void SqliteManager::addPath(const MetadataPath& path) {
    database_.change([&](PathEdit& edit) { return edit.add(path); });
}

std::unique_ptr<MetadataNode> SqliteManager::getNode(const MetadataPath& path) const {
    const ReadAhead::Entry* const entry = read(path);
    if (!entry || !entry->node)
        return nullptr;
    auto node = decodeNode(*entry->node);
    if (!node) {
        raise<MetadataReadFailure>(database_.getFile().text(),
                                   u"the node of the path \"" + path.string() + u"\" in it is damaged");
    }
    return node;
}

void SqliteManager::setNodes(const std::map<MetadataPath, std::shared_ptr<MetadataNode>>& nodes) {
    for (const auto& [path, node] : nodes) {
        if (node)
            requireStorable(*node, database_.getFile());
    }
    database_.change([&](PathEdit& edit) {
        bool changed = false;
        for (const auto& [path, node] : nodes) {
            changed = edit.setNode(path, node ? NodeValue(encodeNode(*node)) : std::nullopt) || changed;
            if (changed && edit.isLooking())
                break;
        }
        return changed;
    });
}

void SqliteManager::removePaths(const std::vector<MetadataPath>& paths) {
    if (!database_.open())
        return;
    database_.change([&](PathEdit& edit) {
        bool changed = false;
        for (const MetadataPath& path : paths)
            changed = edit.remove(path) || changed;
        return changed;
    });
}

void SqliteManager::renamePath(const MetadataPath& path, const PathElement& element) {
    database_.change([&](PathEdit& edit) { return edit.rename(path, element); });
}

bool SqliteManager::hasNode(const MetadataPath& path) const {
    const ReadAhead::Entry* const entry = read(path);
    return entry && entry->node;
}

std::vector<MetadataPath> SqliteManager::getChildren(const MetadataPath& path) const {
    std::vector<MetadataPath> children;
    if (database_.findUnchanged()) {
        const ReadAhead::Entry* const entry = getAhead().find(path);
        if (entry && entry->hasChildren == false)
            return children;
    }
    database_.read([&](PathTable& table, SeenChanges& seen) {
        const auto parent = table.find(path);
        // What lies deeper is damage; it would make longer and longer paths.
        if (!parent || path.getPath().size() >= maximumSteps)
            return;
        for (ChildRow& row : table.getChildren(*parent)) {
            // Of a branch there is no more to know than that it exists.
            if (!row.hasNode)
                seen.addRow(row.id, row.changed);
            std::vector<PathElement> elements = path.getPath();
            elements.push_back(std::move(row.element));
            children.emplace_back(std::move(elements));
        }
    });
    return children;
}

bool SqliteManager::hasPath(const MetadataPath& path) const {
    bool exists = path.getPath().empty();
    database_.read([&](PathTable& table, SeenChanges& /*seen*/) { exists = table.find(path).has_value(); });
    return exists;
}

void SqliteManager::setPaths(const std::vector<MetadataPath>& paths) {
    database_.change([&](PathEdit& edit) { return edit.arrange(paths); });
}

std::vector<MetadataDamage> SqliteManager::findDamage() const {
    std::vector<MetadataDamage> damage;
    if (auto problem = database_.findCoreFileDamage())
        damage.push_back({database_.getCoreFile(), std::move(*problem)});
    database_.read([&](PathTable& table, SeenChanges& /*seen*/) {
        for (std::u16string& problem : sqlite::findDamage(table))
            damage.push_back({database_.getFile(), std::move(problem)});
    });
    if (auto journal = findJournalDamage(database_.getFile().parentPath()))
        damage.push_back(*std::move(journal));
    return damage;
}

std::vector<project::metadata::StoreFile> SqliteManager::listFiles() const {
    // What SQLite has beside a database while it is open (https://sqlite.org/tempfiles.html). The log and the rollback
    // journal hold what is not in the database yet, or not any more.
    const Path& file = database_.getFile();
    const auto beside = [&](const char16_t* ending) { return Path(file.text() + ending); };
    return listStoreFiles(
        file.parentPath(),
        {{file, true}, {beside(u"-journal"), true}, {beside(u"-wal"), true}, {beside(u"-shm"), false}});
}

ReadAhead& SqliteManager::getAhead() const {
    if (std::exchange(generation_, database_.getGeneration()) != database_.getGeneration())
        ahead_.clear();
    return ahead_;
}

const ReadAhead::Entry* SqliteManager::read(const MetadataPath& path) const {
    const ReadAhead::Entry* entry = nullptr;
    SeenChanges* const unchanged = database_.findUnchanged();
    if (unchanged)
        entry = getAhead().find(path);
    if (entry) {
        unchanged->addRow(entry->id, entry->changed);
        return entry;
    }
    database_.read([&](PathTable& table, SeenChanges& seen) {
        entry = getAhead().read(table, path);
        if (entry)
            seen.addRow(entry->id, entry->changed);
    });
    return entry;
}

}  // namespace stores::sqlite
