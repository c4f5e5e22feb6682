#include "operations/MetadataTree.hpp"

#include <sys/stat.h>

#include <algorithm>
#include <fstream>
#include <optional>
#include <set>
#include <utility>

#include "operations/Errors.hpp"
#include "operations/FileOutput.hpp"
#include "operations/Project.hpp"
#include "project/metadata/CoreFile.hpp"
#include "project/metadata/FactoryRegistry.hpp"
#include "project/metadata/MetadataErrors.hpp"
#include "project/metadata/MetadataXml.hpp"
#include "project/metadata/RepeatableRead.hpp"
#include "store_support/StoreErrors.hpp"
#include "store_support/WholeFile.hpp"

namespace operations {

namespace {

/// Those of the kinds of store that can read single files.
std::vector<std::shared_ptr<const pm::MetadataFileFormat>> listFormats() {
    std::vector<std::shared_ptr<const pm::MetadataFileFormat>> formats;
    for (const auto& factory : pm::getRegisteredFactories()) {
        if (auto format = std::dynamic_pointer_cast<const pm::MetadataFileFormat>(factory))
            formats.push_back(std::move(format));
    }
    return formats;
}

MetadataTree readFile(const host::Path& file) {
    for (const auto& format : listFormats()) {
        if (auto content = format->readFile(file))
            return {content->isRoot ? TreeForm::core : TreeForm::path, std::move(content->tree), format};
    }
    std::shared_ptr<const pm::MetadataNode> xml = store_support::readWholeFile(file, [](const auto&) { return true; });
    if (!xml)
        xml = pm::readFromFile(file);  // which says what is wrong with it
    const std::u16string& type = xml->get(pm::metadataTypeKey());
    if (!type.empty() && !xml->getChildNodes().empty()) {
        throw OperationError(ErrorKind::failure, quoted(file) + " belongs to metadata of type \"" + host::toUtf8(type) +
                                                     "\", and no store says what <" +
                                                     host::toUtf8(xml->getChildNodes().front()->getName()) +
                                                     "> in it means");
    }
    MetadataTree tree{TreeForm::node, {}};
    tree.root.node = std::move(xml);
    return tree;
}

class TreeReader {
public:
    TreeReader(const pm::MetadataManager& store, Progress& progress, std::vector<pm::MetadataDamage>* leftOut,
               pm::PathSink& sink)
        : store_(store), reading_(store), progress_(progress), leftOut_(leftOut), sink_(sink) {}

    /// Tells what the store has at `path`, whose last step is `step`, and below.
    void tell(const pm::MetadataPath& path, const pm::PathElement& step) {
        progress_.advance();
        sink_.begin(step, getNode(path));
        for (const pm::MetadataPath& child : store_.getChildren(path))
            tell(child, child.getPath().back());
        sink_.end();
    }

private:
    /// Null for a node that is left out, too.
    NodePtr getNode(const pm::MetadataPath& path) {
        try {
            return store_.getNode(path);
        } catch (const pm::MetadataReadFailure& error) {
            if (!leftOut_ || !isDamaged(path))
                throw;
            leftOut_->push_back({getNodeFile(path), store_support::getReadProblem(error)});
            return nullptr;
        }
    }

    /// Whether the store says that the file with the node at `path` is damaged.
    bool isDamaged(const pm::MetadataPath& path) {
        if (!damagedFiles_) {
            damagedFiles_.emplace();
            for (const pm::MetadataDamage& damage : findDamage(store_))
                damagedFiles_->insert(damage.file);
        }
        return damagedFiles_->count(getNodeFile(path)) != 0;
    }

    host::Path getNodeFile(const pm::MetadataPath& path) const {
        const auto* const lister = dynamic_cast<const pm::StoreFileLister*>(&store_);
        return lister ? lister->getNodeFile(path) : host::Path();
    }

    const pm::MetadataManager& store_;
    const pm::RepeatableRead reading_;
    Progress& progress_;
    std::vector<pm::MetadataDamage>* const leftOut_;
    pm::PathSink& sink_;
    std::optional<std::set<host::Path>> damagedFiles_;  // found when they are first asked for
};

/// @param root for the error sentence
MetadataTree readStore(const pm::MetadataManager& store, const host::Path& root, Progress& progress) {
    const pm::RepeatableRead reading(store);
    for (const pm::MetadataDamage& damage : findDamage(store)) {
        if (damage.readsAsBranch || damage.holdsNoMetadata)
            continue;
        pm::tellDamage(damage);
        throw OperationError(ErrorKind::failure,
                             "The metadata of " + quoted(root) +
                                 " is damaged, and what is not read of it would pass for removed; see "
                                 "\"project-metadata check\"");
    }
    return {TreeForm::project, readPaths(store, progress)};
}

std::string nameOfWork(const host::Path& place) {
    return "Reading " + quoted(place);
}

bool endsWithLineBreak(const host::Path& file) {
    std::ifstream stream(file.accessName(), std::ios::binary | std::ios::ate);
    if (!stream || stream.tellg() == std::streamoff(0))
        return true;
    return stream.seekg(-1, std::ios::end).get() == '\n';
}

}  // namespace

pm::MetadataPath MetadataTree::rootPath() const {
    return form == TreeForm::path ? pm::MetadataPath({root.step}) : pm::MetadataPath();
}

MetadataTree readTree(const host::Path& place, Observer& observer) {
    struct stat status {};
    if (stat(place.accessName().c_str(), &status) != 0)
        throw OperationError(ErrorKind::failure, "There is no file or project " + quoted(place));
    const auto progress = observer.start(nameOfWork(place));
    if (S_ISDIR(status.st_mode))
        return readStore(*openProject(place), place, *progress);
    // Before the first byte of a device or a pipe is waited for.
    if (S_ISREG(status.st_mode) && status.st_size == 0)
        return {};
    return readFile(place);
}

MetadataTree readTree(const pm::MetadataManager& store, const host::Path& root, Observer& observer) {
    return readStore(store, root, *observer.start(nameOfWork(root)));
}

PathTree readPaths(const pm::MetadataManager& store, Progress& progress) {
    return readSubtree(store, {}, progress);
}

PathTree readSubtree(const pm::MetadataManager& store, const pm::MetadataPath& top, Progress& progress) {
    return pm::collectPaths([&](pm::PathSink& sink) { tellSubtree(store, top, progress, nullptr, sink); });
}

void tellSubtree(const pm::MetadataManager& store, const pm::MetadataPath& top, Progress& progress,
                 std::vector<pm::MetadataDamage>* leftOut, pm::PathSink& sink) {
    pm::PathElement last({}, {});
    for (const pm::PathElement& step : top.getPath()) {
        sink.begin(last, nullptr);
        last = step;
    }
    TreeReader(store, progress, leftOut, sink).tell(top, last);
    for (std::size_t above = 0; above < top.getPath().size(); ++above)
        sink.end();
}

const PathTree* findPath(const PathTree& tree, const pm::MetadataPath& top) {
    const PathTree* at = &tree;
    for (const pm::PathElement& step : top.getPath()) {
        const auto child = std::find_if(at->children.begin(), at->children.end(),
                                        [&](const PathTree& tried) { return tried.step == step; });
        if (child == at->children.end())
            return nullptr;
        at = &*child;
    }
    return at;
}

void writeTree(const MetadataTree& tree, const host::Path& file) {
    if (tree.format) {
        tree.format->writeFile({tree.form == TreeForm::core, tree.root}, file);
        return;
    }
    writeFile(file, Existing::replace, [&](const host::Path& staged) {
        if (tree.form == TreeForm::node)
            pm::writeToFile(*tree.root.node, staged, !endsWithLineBreak(file));
    });
}

std::vector<std::u16string> listFilePatterns() {
    std::set<std::u16string> patterns;
    for (const auto& format : listFormats()) {
        for (std::u16string& pattern : format->getFilePatterns())
            patterns.insert(std::move(pattern));
    }
    return {patterns.begin(), patterns.end()};
}

pm::MetadataPath childPath(const pm::MetadataPath& path, const pm::PathElement& step) {
    std::vector<pm::PathElement> elements = path.getPath();
    elements.push_back(step);
    return pm::MetadataPath(std::move(elements));
}

}  // namespace operations
