/// Copying a whole tree from one store into another: what is read, and what is handed over.
#include "project/metadata/MetadataCopy.hpp"

#include <stdexcept>

#include "project/metadata/MetadataNodeSpecification.hpp"
#include "tests/metadata/Helpers.hpp"

using namespace project::metadata;
using namespace test;

namespace {

const MetadataPath root;
const MetadataPath a = MetadataPathBuilder().add(u"t", u"A").build();
const MetadataPath ab = MetadataPathBuilder().add(a).add(u"t", u"B").build();
const MetadataPath z = MetadataPathBuilder().add(u"t", u"Z").build();

Texts calls;  ///< of all stores

/// A store that holds a small tree, in which A has no node, and takes what is copied into it.
struct MemoryStore : MetadataManager {
    std::unique_ptr<MetadataNode> getNode(const MetadataPath& path) const override {
        calls.push_back(u"getNode " + path.string());
        return std::make_unique<MetadataNodeSpecification>(u"at " + path.string());
    }
    bool hasNode(const MetadataPath& path) const override {
        calls.push_back(u"hasNode " + path.string());
        return path != a;
    }
    std::vector<MetadataPath> getChildren(const MetadataPath& path) const override {
        calls.push_back(u"getChildren " + path.string());
        return path == root ? std::vector{z, a} : path == a ? std::vector{ab} : std::vector<MetadataPath>();
    }
    void setNodes(const std::map<MetadataPath, std::shared_ptr<MetadataNode>>& nodes) override {
        calls.emplace_back(u"setNodes");
        for (const auto& [path, node] : nodes)
            calls.push_back(path.string() + u" = " + node->getName());
    }
    void setPaths(const std::vector<MetadataPath>& paths) override {
        calls.emplace_back(u"setPaths");
        for (const MetadataPath& path : paths)
            calls.push_back(path.string());
    }

    [[noreturn]] static void refuse() { throw std::logic_error("not an operation for copying"); }
    void setNode(const MetadataPath& /*path*/, const MetadataNode& /*node*/) override { refuse(); }
    void removeNode(const MetadataPath& /*path*/) override { refuse(); }
    void addPath(const MetadataPath& /*path*/) override { refuse(); }
    void removePath(const MetadataPath& /*path*/) override { refuse(); }
    void removePaths(const std::vector<MetadataPath>& /*paths*/) override { refuse(); }
    bool hasPath(const MetadataPath& /*path*/) const override { refuse(); }
};

}  // namespace

TEST(CopyTest, readsLevelByLevelAndHandsOverTwoBatchesWithoutTheNodeOfTheRoot) {
    MemoryStore destination;
    copyMetadata(MemoryStore(), destination);
    EXPECT_EQ(calls, (Texts{u"hasNode ", u"getNode ", u"getChildren ",                       //
                            u"hasNode t:Z", u"getNode t:Z", u"getChildren t:Z",              //
                            u"hasNode t:A", u"getChildren t:A",                              //
                            u"hasNode t:A|t:B", u"getNode t:A|t:B", u"getChildren t:A|t:B",  //
                            u"setNodes", u"t:A|t:B = at t:A|t:B", u"t:Z = at t:Z",           //
                            u"setPaths", u"", u"t:Z", u"t:A", u"t:A|t:B"}));
}
