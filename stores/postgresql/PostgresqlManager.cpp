#include "stores/postgresql/PostgresqlManager.hpp"

#include <utility>

#include "store_support/NodeBlob.hpp"
#include "store_support/StoreFiles.hpp"
#include "store_support/TreeRules.hpp"
#include "stores/postgresql/Damage.hpp"

namespace stores::postgresql {

namespace {

const std::u16string& serviceOption = *new std::u16string(u"service");
const std::u16string& schemaOption = *new std::u16string(u"schema");

}  // namespace

PostgresqlManager::PostgresqlManager(const Path& folder, JobRunner runJob, std::chrono::milliseconds limit)
    : project_(folder, std::move(runJob), limit) {}

void PostgresqlManager::setNode(const MetadataPath& path, const MetadataNode& node) {
    const auto stored = requireStorable(node, project_.getCoreFile());
    change(NodesEdit({{path, encodeNode(*stored), false}}, project_.getCoreFile()),
           project_.told().setting(path, true));
}

void PostgresqlManager::removeNode(const MetadataPath& path) {
    change(NodeRemoval(path, project_.getCoreFile()), project_.told().setting(path, false));
}

void PostgresqlManager::addPath(const MetadataPath& path) {
    project_.change(NodesEdit({{path, std::nullopt, true}}, project_.getCoreFile()));
}

std::unique_ptr<MetadataNode> PostgresqlManager::getNode(const MetadataPath& path) const {
    const Row* const row = findRow(path);
    if (!row || !row->node)
        return nullptr;
    auto node = decoder_.decode(*row->node);
    if (!node) {
        project_.tellDamage(describeBadNode(*row), row->changed);
        project_.raiseDamage(u"the node of the path \"" + path.string() + u"\" is damaged");
    }
    return node;
}

void PostgresqlManager::setNodes(const std::map<MetadataPath, std::shared_ptr<MetadataNode>>& nodes) {
    std::vector<NodesEdit::Entry> entries;
    entries.reserve(nodes.size());
    for (const auto& [path, node] : nodes) {
        const auto stored = node ? requireStorable(*node, project_.getCoreFile()) : nullptr;
        entries.push_back({path, stored ? NodeValue(encodeNode(*stored)) : std::nullopt, false});
    }
    change(NodesEdit(std::move(entries), project_.getCoreFile()), project_.told().setting(nodes));
}

void PostgresqlManager::removePaths(const std::vector<MetadataPath>& paths) {
    change(PathRemoval(paths, project_.getCoreFile()), project_.told().removing(paths));
}

bool PostgresqlManager::hasNode(const MetadataPath& path) const {
    const Row* const row = findRow(path);
    return row && row->hasNode;
}

std::vector<MetadataPath> PostgresqlManager::getChildren(const MetadataPath& path) const {
    std::vector<MetadataPath> children;
    const std::vector<const Row*> rows = project_.readChildren(getId(path));
    if (path.getPath().size() >= maximumSteps) {
        // What lies deeper is damage; it would make longer and longer paths.
        if (!rows.empty()) {
            project_.tellDamage(u"the path \"" + path.string() + u'"' + store_support::pathsBeyondLimit(),
                                rows.front()->changed);
        }
        return children;
    }
    for (const Row* row : rows) {
        // Of a branch there is no more to know than that it exists.
        if (!row->hasNode)
            project_.addSeen(row->id, row->changed);
        std::vector<PathElement> elements = path.getPath();
        elements.push_back(*row->element);
        children.emplace_back(std::move(elements));
    }
    return children;
}

bool PostgresqlManager::hasPath(const MetadataPath& path) const {
    const bool exists = project_.readRow(getId(path)) != nullptr;
    return exists || path.getPath().empty();
}

void PostgresqlManager::setPaths(const std::vector<MetadataPath>& paths) {
    change(Arrangement(paths, project_.getCoreFile()), project_.told().keeping(paths));
}

std::vector<MetadataDamage> PostgresqlManager::findDamage() const {
    std::vector<MetadataDamage> damage;
    Question question;
    question.allBut.emplace();
    if (const auto answer = project_.ask(question)) {
        damage = postgresql::findDamage(answer->all);
        for (MetadataDamage& found : damage) {
            found.file = project_.getCoreFile();
            found.problem.insert(0, project_.describe() + u": ");
        }
    }
    return damage;
}

std::vector<project::metadata::StoreFile> PostgresqlManager::listFiles() const {
    return listStoreFiles(project_.getCoreFile().parentPath(), {});
}

std::vector<project::metadata::MetadataOption> PostgresqlManager::getOptions() const {
    return {{serviceOption, u"the service in the libpq service file; without it, the first of the allowed servers"},
            {schemaOption, u"the schema; without it, \"" + usualSchema + u"\" or the allowed one"}};
}

void PostgresqlManager::setOption(const std::u16string& name, const std::u16string& value) {
    if (name == serviceOption)
        project_.chooseService(value);
    else if (name == schemaOption)
        project_.chooseSchema(value);
}

std::int64_t PostgresqlManager::getContentVersion() const {
    const auto answer = project_.ask({});
    return answer ? answer->batch : 0;
}

std::int64_t PostgresqlManager::waitForChange(std::int64_t version, int descriptor, std::chrono::milliseconds limit) {
    return project_.waitForBatch(version, descriptor, std::chrono::steady_clock::now() + limit);
}

bool PostgresqlManager::removeContent(std::int64_t version) {
    return project_.remove(version);
}

const Row* PostgresqlManager::findRow(const MetadataPath& path) const {
    const Row* const row = project_.readRow(getId(path));
    if (row && !row->isSound()) {
        project_.tellDamage(describeMisfit(*row), row->changed);
        project_.raiseDamage(u"the row of the path \"" + path.string() + u"\" says that it is another one");
    }
    if (row)
        project_.addSeen(row->id, row->changed);
    project_.told().tell(path, row && row->hasNode);
    return row;
}

void PostgresqlManager::change(const PathEdit& edit, ToldNodes::Change told) {
    project_.change(edit);
    told.done();
}

}  // namespace stores::postgresql
