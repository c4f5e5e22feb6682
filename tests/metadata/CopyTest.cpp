/// Copying a whole tree from one store into another: what is read, and what is handed over.
#include "project/metadata/MetadataCopy.hpp"

#include "tests/metadata/Helpers.hpp"
#include "tests/metadata/Stores.hpp"

using namespace project::metadata;
using namespace test;

namespace {

const MetadataPath root;
const MetadataPath a = path({u"A"});
const MetadataPath ab = path({u"A", u"B"});
const MetadataPath z = path({u"Z"});

/// Root, Z and A below it, B below A; A has no node.
const std::vector<MemoryStore::Entry> smallTree{
    {root, u"Root", {z, a}}, {z, u"NodeZ", {}}, {a, u"", {ab}}, {ab, u"NodeB", {}}};

class CopyTest : public testing::Test {
protected:
    /// Copies a store with these entries; an operation called `failing` throws.
    void copy(std::vector<MemoryStore::Entry> entries, const std::u16string& failing = u"none") {
        const Journal journal = [this, failing](const std::u16string& call) {
            calls.push_back(call);
            if (call == failing)
                throw std::out_of_range("failing on purpose");
        };
        source = std::make_unique<MemoryStore>(journal, std::move(entries));
        destination = std::make_unique<MemoryStore>(journal);
        calls.clear();
        copyMetadata(*source, *destination);
    }

    Texts pathsOfNodes() const {
        std::vector<MetadataPath> paths;
        for (const auto& [path, node] : destination->nodes)
            paths.push_back(path);
        return textsOf(paths);
    }

    Texts calls;
    std::unique_ptr<MemoryStore> source;
    std::unique_ptr<MemoryStore> destination;
};

}  // namespace

TEST_F(CopyTest, readsLevelByLevelAndHandsOverTwoBatches) {
    copy(smallTree);
    EXPECT_EQ(calls, (Texts{u"hasNode ", u"getNode ", u"getChildren ",                       //
                            u"hasNode t:Z", u"getNode t:Z", u"getChildren t:Z",              //
                            u"hasNode t:A", u"getChildren t:A",                              //
                            u"hasNode t:A|t:B", u"getNode t:A|t:B", u"getChildren t:A|t:B",  //
                            u"setNodes", u"setPaths"}));
    EXPECT_EQ(pathsOfNodes(), (Texts{u"t:A|t:B", u"t:Z"}));
    EXPECT_EQ(textsOf(destination->paths), (Texts{u"", u"t:Z", u"t:A", u"t:A|t:B"}));
    EXPECT_EQ(destination->nodes.at(z).get(), source->given.at(1)) << "nodes are handed on, not copied";
    EXPECT_EQ(destination->nodes.at(ab).get(), source->given.at(2));
}

TEST_F(CopyTest, theNodeOfTheRootIsNotHandedOn) {
    for (const char16_t* node : {u"", u"Root"}) {
        copy({{root, node, {}}});
        EXPECT_TRUE(destination->nodes.empty());
        EXPECT_EQ(textsOf(destination->paths), Texts{u""});
    }
}

TEST_F(CopyTest, pathsOfOneTextAreAllVisitedAndShareTheFirstNode) {
    const MetadataPath first(std::vector<PathElement>{{u"x", u"a:b"}});
    const MetadataPath second(std::vector<PathElement>{{u"x:a", u"b"}});
    copy({{root, u"", {first, first, second}}, {first, u"First", {}}, {second, u"Second", {z}}, {z, u"NodeZ", {}}});
    EXPECT_EQ(destination->paths, (std::vector<MetadataPath>{root, first, first, second, z}));
    EXPECT_EQ(source->given.size(), 4u) << "every node is read, each time";
    EXPECT_EQ(pathsOfNodes(), (Texts{u"t:Z", u"x:a:b"}));
    EXPECT_EQ(destination->nodes.at(second)->getName(), u"First");
}

TEST_F(CopyTest, anErrorWhileReadingLeavesTheDestinationAlone) {
    for (const char16_t* failing : {u"hasNode t:A", u"getNode t:Z", u"getChildren t:A|t:B", u"setNodes", u"setPaths"}) {
        EXPECT_THROW(copy(smallTree, failing), std::out_of_range);
        EXPECT_EQ(calls.back(), failing) << "nothing is called after a failure";
        EXPECT_TRUE(destination->paths.empty());
    }
}
