#include "stores/monolithic/MonolithicFormat.hpp"

#include <algorithm>
#include <optional>

#include "host/FileSystem.hpp"
#include "host/TempDirGuard.hpp"
#include "project/metadata/MetadataNodeSpecification.hpp"
#include "project/metadata/SharedNode.hpp"
#include "store_support/FileReplacement.hpp"
#include "store_support/PathXml.hpp"
#include "store_support/TreeRules.hpp"
#include "store_support/WholeFile.hpp"
#include "stores/monolithic/MonolithicManager.hpp"
#include "stores/monolithic/SharedTree.hpp"

namespace stores::monolithic {

using project::metadata::FileContent;
using project::metadata::PathSink;
using project::metadata::XmlSink;

namespace {

bool isOwn(const MetadataNode& root) {
    return root.getName() == projectElementName && root.get(metadataTypeKey()) == monolithicName;
}

/// So many nodes are proved in one scratch file, or nodes of so many UTF-16 units.
constexpr std::size_t nodesInProof = 1000;
constexpr std::size_t unitsInProof = 1'000'000;

/// In UTF-16 units. A tag that is longer, or some of them together, may be too much for a reader.
constexpr std::size_t longTag = 10'000;

/// In UTF-16 units.
struct NodeSize {
    std::size_t all = 0;
    std::size_t longestTag = 0;
};

void measure(const MetadataNode& node, NodeSize& size) {
    std::size_t tag = node.getName().size();
    project::metadata::visitAttributes(node,
                                       [&](const auto& key, const auto& value) { tag += key.size() + value.size(); });
    size = {size.all + tag, std::max(size.longestTag, tag)};
    for (const auto& child : node.getChildNodes())
        measure(*child, size);
}

/// Hands on to a file what can be read back from it.
class ProvedPaths : public PathSink {
public:
    /// @param file for errors
    ProvedPaths(XmlSink& xml, const Path& file) : paths_(xml), file_(file) {}

    void begin(const PathElement& step, const std::shared_ptr<const MetadataNode>& node) override {
        isEmpty_ = siblings_.empty() && !node;
        if (!siblings_.empty())
            addSibling(step);
        const int depth = static_cast<int>(siblings_.size());
        requireDepth(depth, file_);
        if (node)
            requireReadable(project::metadata::getShared(*node), depth + 2, file_);
        if (node && project::metadata::needsProof(*node))
            addDoubtful(node);
        siblings_.emplace_back();
        paths_.begin(step, node);
    }

    void end() override {
        siblings_.pop_back();
        paths_.end();
    }

    bool isEmpty() const noexcept { return isEmpty_; }

    /// @param written the file, which is complete
    void prove(const Path& written) {
        if (!doubtful_.empty())
            proveNodes();
        if (!isLong_)
            return;
        try {
            static_cast<void>(project::metadata::readFromFile(written));
        } catch (const project::exception::ProjectException&) {
            raise<MetadataWriteFailure>(file_.text(), u"it could not be read back");
        }
    }

private:
    void addSibling(const PathElement& step) {
        SharedTree& siblings = siblings_.back();
        const std::size_t count = siblings.getChildren().size();
        siblings.add(step);
        if (siblings.getChildren().size() == count)
            raise<MetadataWriteFailure>(file_.text(), u"a path would stand twice under one parent in it");
        if (step.getType().size() + step.getLocation().size() > longTag) {
            requireStorable(project::metadata::MetadataPath({step}), file_);
            isLong_ = true;
        }
    }

    void addDoubtful(const std::shared_ptr<const MetadataNode>& node) {
        NodeSize size;
        measure(project::metadata::getShared(*node), size);
        isLong_ = isLong_ || size.longestTag > longTag;
        doubtful_.push_back(node);
        doubtfulUnits_ += size.all;
        if (doubtful_.size() == nodesInProof || doubtfulUnits_ > unitsInProof)
            proveNodes();
    }

    void proveNodes() {
        const host::TempDirGuard scratch(host::FileSystem::temp_directory_name().text(), u"metadata-", u"");
        const auto tell = [&](XmlSink& xml) {
            xml.begin(projectElementName);
            for (const auto& node : doubtful_)
                putNode(xml, node);
            xml.end();
        };
        writeProved(tell, Path(scratch.getDirectoryName()) / u"nodes.xml", false, file_);
        doubtful_.clear();
        doubtfulUnits_ = 0;
    }

    XmlPaths paths_;
    const Path& file_;
    std::vector<SharedTree> siblings_;  // those that have come of the next path, for each path that is open
    bool isEmpty_ = true;
    std::vector<std::shared_ptr<const MetadataNode>> doubtful_;  // what is still to be proved
    std::size_t doubtfulUnits_ = 0;
    bool isLong_ = false;
};

}  // namespace

std::vector<std::u16string> MonolithicFormat::getFilePatterns() const {
    return {coreFileName()};
}

std::optional<FileContent> MonolithicFormat::readFile(const Path& file) const {
    const auto xml = readWholeFile(file, isOwn);
    if (!xml)
        return std::nullopt;
    std::vector<MetadataDamage> damage;
    const SharedTree tree = fromXml(*xml, Elements::stay, {}, file, damage);
    if (!damage.empty())
        raise<MetadataReadFailure>(file.text(), damage.front().problem);
    requireNothingLost(*xml, *toXml(tree), file);
    return FileContent{true, project::metadata::collectPaths([&](PathSink& sink) { tellPaths(tree, sink); })};
}

void MonolithicFormat::writeFile(const FileContent& content, const Path& file) const {
    if (!content.isRoot)
        raise<MetadataWriteFailure>(file.text(), u"a file of this store holds all paths from the root path on");
    writePaths([&](PathSink& sink) { project::metadata::tellPaths(content.tree, sink); }, file);
}

void MonolithicFormat::writePaths(const project::metadata::PathTeller& tell, const Path& file) const {
    replaceFile(file, [&](const Path& staged) {
        std::optional<ProvedPaths> paths;
        const auto tellFile = [&](XmlSink& xml) { tell(paths.emplace(xml, file)); };
        project::metadata::writeToFile(tellFile, staged, false);
        if (paths->isEmpty())
            project::metadata::writeToFile([](XmlSink& xml) { tellXml({}, xml); }, staged, true);
        paths->prove(staged);
    });
}

}  // namespace stores::monolithic
