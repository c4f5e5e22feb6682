#include "stores/sqlite/SqliteManager.hpp"

#include <utility>

#include "project/metadata/SharedNode.hpp"
#include "store_support/BatchJournal.hpp"
#include "store_support/NodeBlob.hpp"
#include "store_support/Renaming.hpp"
#include "store_support/StoreFiles.hpp"
#include "store_support/TreeRules.hpp"
#include "stores/sqlite/Damage.hpp"

namespace stores::sqlite {

using host::Path;
using project::metadata::MetadataNode;
using project::metadata::MetadataPath;
using project::metadata::MetadataReadFailure;
using project::metadata::PathElement;
using project::metadata::raise;
using store_support::encodeNode;
using store_support::JobRunner;
using store_support::maximumSteps;
using store_support::replaceLeaf;
using store_support::requireRenamable;
using store_support::requireStorable;

SqliteManager::SqliteManager(const Path& folder, JobRunner runJob, std::chrono::milliseconds limit)
    : database_(folder, std::move(runJob), limit) {}

void SqliteManager::setNode(const MetadataPath& path, const MetadataNode& node) {
    requireStorable(path, database_.getFile());
    const NodeValue value = encodeNode(*requireStorable(node, database_.getFile()));
    change(database_.told().setting(path, true), [&](PathEdit& edit) { return edit.setNode(path, value); });
}

void SqliteManager::removeNode(const MetadataPath& path) {
    changeExisting(database_.told().setting(path, false), [&](PathEdit& edit) { return edit.removeNode(path); });
}

void SqliteManager::addPath(const MetadataPath& path) {
    requireStorable(path, database_.getFile());
    database_.change([&](PathEdit& edit) { return edit.add(path); });
}

std::unique_ptr<MetadataNode> SqliteManager::getNode(const MetadataPath& path) const {
    const ReadAhead::Entry* const entry = read(path);
    if (!entry || !entry->node)
        return nullptr;
    std::shared_ptr<const MetadataNode> node = decoder_.decode(*entry->node);
    if (!node) {
        tellDamage(describeBadNode(path, entry->id), entry->changed);
        raise<MetadataReadFailure>(database_.getFile().text(),
                                   u"the node of the path \"" + path.string() + u"\" in it is damaged");
    }
    // Another store that keeps it shares it, as in an export, and need not copy it.
    return project::metadata::copyKeptNode(std::move(node));
}

void SqliteManager::setNodes(const std::map<MetadataPath, std::shared_ptr<MetadataNode>>& nodes) {
    if (nodes.empty())
        return;
    std::vector<std::pair<const MetadataPath*, std::shared_ptr<const MetadataNode>>> stored;
    stored.reserve(nodes.size());
    for (const auto& [path, node] : nodes) {
        requireStorable(path, database_.getFile());
        stored.emplace_back(&path, node ? requireStorable(*node, database_.getFile()) : nullptr);
    }
    change(database_.told().setting(nodes), [&](PathEdit& edit) {
        bool changed = false;
        for (const auto& [path, node] : stored) {
            changed = edit.setNode(*path, node ? NodeValue(encodeNode(*node)) : std::nullopt) || changed;
            if (changed && edit.isLooking())
                break;
        }
        return changed;
    });
}

void SqliteManager::removePaths(const std::vector<MetadataPath>& paths) {
    changeExisting(database_.told().removing(paths), [&](PathEdit& edit) {
        bool changed = false;
        for (const MetadataPath& path : paths)
            changed = edit.remove(path) || changed;
        return changed;
    });
}

void SqliteManager::renamePath(const MetadataPath& path, const project::metadata::PathElement& element) {
    const MetadataPath target = replaceLeaf(path, element);
    const auto rename = [&](PathEdit& edit) { return edit.rename(path, element); };
    if (changeExisting(database_.told().renaming(path, target), rename))
        return;
    const store_support::Renaming nothingIsThere{};
    requireRenamable(path, target, nothingIsThere, database_.getFile());
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
        if (!parent)
            return;
        if (path.getPath().size() >= maximumSteps) {
            // What lies deeper is damage; it would make longer and longer paths.
            if (table.hasChildren(*parent)) {
                tellDamage(describe(path, *parent) + store_support::pathsBeyondLimit(), table.getRow(*parent).changed);
            }
            return;
        }
        std::vector<DamagedRow> leftOut;
        std::vector<ChildRow> rows = table.getChildren(*parent, &leftOut);
        for (const DamagedRow& row : leftOut)
            tellDamage(describeBadStep(table.getPath(row.id), row.id), row.changed);
        children.reserve(rows.size());
        for (ChildRow& row : rows) {
            // Of a branch there is no more to know than that it exists.
            if (!row.hasNode)
                seen.addRow(row.id, row.changed);
            std::vector<PathElement> elements;
            elements.reserve(path.getPath().size() + 1);
            elements = path.getPath();
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
    for (const MetadataPath& path : paths)
        requireStorable(path, database_.getFile());
    change(database_.told().keeping(paths), [&](PathEdit& edit) { return edit.arrange(paths); });
}

std::vector<MetadataDamage> SqliteManager::findDamage() const {
    std::vector<MetadataDamage> damage;
    if (auto problem = database_.findCoreFileDamage())
        damage.push_back({database_.getCoreFile(), std::move(*problem), false, false, true});
    else if (auto foreign = database_.findForeignInCoreFile(); !foreign.empty())
        damage.push_back({database_.getCoreFile(), std::move(foreign), false, true, true});
    database_.read([&](PathTable& table, SeenChanges& /*seen*/) {
        for (MetadataDamage& found : sqlite::findDamage(table, database_.getFile()))
            damage.push_back(std::move(found));
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

void SqliteManager::tellDamage(const std::u16string& problem, std::int64_t version) const {
    teller_.tell({database_.getFile(), problem}, version);
}

void SqliteManager::change(ToldNodes::Change told, const Edit& edit) {
    database_.change(edit);
    told.done();
}

bool SqliteManager::changeExisting(ToldNodes::Change told, const Edit& edit) {
    const bool isThere = database_.changeExisting(edit);
    told.done();
    return isThere;
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
    } else {
        database_.read([&](PathTable& table, SeenChanges& seen) {
            entry = getAhead().read(table, path, database_.isReading());
            if (entry)
                seen.addRow(entry->id, entry->changed);
        });
    }
    database_.told().tell(path, entry && entry->node);
    return entry;
}

}  // namespace stores::sqlite
