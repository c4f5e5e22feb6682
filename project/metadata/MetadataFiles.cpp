// Trees of paths, told one path at a time and put together again.

#include "project/metadata/MetadataFiles.hpp"

namespace project::metadata {

namespace {

class Collector final : public PathSink {
public:
    void begin(const PathElement& step, const std::shared_ptr<const MetadataNode>& node) override {
        if (open_.empty()) {
            root_ = {step, node, {}, {}};
            open_.push_back(&root_);
        } else {
            open_.push_back(&open_.back()->children.emplace_back(PathTree{step, node, {}, {}}));
        }
    }
    void end() override { open_.pop_back(); }

    PathTree takeRoot() { return std::move(root_); }

private:
    PathTree root_;
    std::vector<PathTree*> open_;  // no sibling comes to a path that is open, so that none moves
};

}  // namespace

void tellPaths(const PathTree& tree, PathSink& sink) {
    sink.begin(tree.step, tree.node);
    for (const PathTree& child : tree.children)
        tellPaths(child, sink);
    sink.end();
}

PathTree collectPaths(const PathTeller& tell) {
    Collector collector;
    tell(collector);
    return collector.takeRoot();
}

void MetadataFileFormat::writePaths(const PathTeller& tell, const host::Path& file) const {
    writeFile({true, collectPaths(tell)}, file);
}

}  // namespace project::metadata
