// An export of a project of any size: it holds one node at a time, and a failure on the way leaves what was there.

#include "operations/Export.hpp"

#include <gtest/gtest.h>

#include <cerrno>
#include <utility>

#include "operations/TreeStore.hpp"
#include "project/metadata/FactoryRegistry.hpp"
#include "project/metadata/MetadataCopy.hpp"
#include "project/metadata/MetadataErrors.hpp"
#include "project/metadata/MetadataNodeSpecification.hpp"
#include "tests/support/MessageOf.hpp"
#include "tests/support/TempFolder.hpp"

namespace {

namespace fs = std::filesystem;
namespace pm = project::metadata;
using operations::PathTree;

struct Count {
    std::size_t alive = 0;
    std::size_t most = 0;
};

class CountedNode : public pm::MetadataNodeSpecification {
public:
    CountedNode(const pm::MetadataNode& node, Count& count) : MetadataNodeSpecification(node), count_(count) {
        count_.most = std::max(count_.most, ++count_.alive);
    }
    ~CountedNode() override { --count_.alive; }

    CountedNode(const CountedNode&) = delete;
    CountedNode& operator=(const CountedNode&) = delete;

private:
    Count& count_;
};

/// Counts the nodes that it has answered, as long as they are there.
class CountingStore : public operations::TreeStore {
public:
    using TreeStore::TreeStore;

    std::unique_ptr<pm::MetadataNode> getNode(const pm::MetadataPath& path) const override {
        if (path == failing)
            fail();
        return std::make_unique<CountedNode>(*TreeStore::getNode(path), count);
    }

    mutable Count count;
    pm::MetadataPath failing{{{u"none", u""}}};
    std::function<void()> fail;
};

/// `width` paths of two levels each, in both the root path too; each node has the attribute `key`.
operations::MetadataTree makeTree(int width, const std::u16string& key) {
    int number = 0;
    const auto add = [&](PathTree& tree) {
        const auto node = std::make_shared<pm::MetadataNodeSpecification>(u"Info");
        node->put(key, std::u16string(100, static_cast<char16_t>(u'0' + ++number % 10)));
        tree.node = node;
    };
    operations::MetadataTree tree{operations::TreeForm::project, {}, nullptr};
    add(tree.root);
    for (int i = 0; i < width; ++i) {
        PathTree& folder = tree.root.children.emplace_back();
        folder.step = {u"Folder", std::u16string(1, static_cast<char16_t>(u'\u0400' + i))};
        add(folder);
        for (int j = 0; j < width; ++j) {
            folder.children.emplace_back().step = {u"File", std::u16string(1, static_cast<char16_t>(u'\u0400' + j))};
            add(folder.children.back());
        }
    }
    return tree;
}

class ExportTest : public testing::Test {
protected:
    void write(const CountingStore& store, operations::Existing existing = operations::Existing::keep) {
        operations::Observer observer;
        operations::exportMetadata(store, {}, test::toPath(file_), existing, false, observer);
    }

    test::TempFolder folder_;
    fs::path file_ = folder_ / "exported.xml";
};

TEST_F(ExportTest, HoldsOneNodeAtATime) {
    const CountingStore store(makeTree(50, u"Value"));
    write(store);
    EXPECT_EQ(store.count.most, 1U);
    const auto factory = pm::getNamedFactory(u"monolithic");
    const auto written = factory->createManager(folder_.path());
    pm::copyMetadata(store, *written);
    written->setNode({}, *store.getNode({}));
    EXPECT_EQ(test::readBytes(file_), test::readBytes(folder_ / "resources/project/Project.xml"));
}

TEST_F(ExportTest, HoldsSomeOfTheNodesThatNeedProof) {
    const CountingStore store(makeTree(50, u"ns:Value"));
    write(store);
    EXPECT_LT(store.count.most, 1500U);
    EXPECT_EQ(std::distance(fs::directory_iterator(folder_.std()), {}), 1);
}

TEST_F(ExportTest, AFailureOnTheWayLeavesWhatWasThere) {
    CountingStore store(makeTree(50, u"Value"));
    store.failing = store.getChildren(store.getChildren({})[40])[3];
    for (const auto existing : {operations::Existing::keep, operations::Existing::replace}) {
        if (existing == operations::Existing::replace)
            test::writeBytes(file_, "before");
        // Of the store, whose errors are told as they are, be they of reading or, when a change is completed, writing.
        store.fail = [] { pm::raise<pm::MetadataReadFailure>(u"/project/a.xml", u"lost"); };
        EXPECT_NE(test::messageOf<pm::MetadataReadFailure>([&] { write(store, existing); }).find("/project/a.xml"),
                  std::string::npos);
        store.fail = [] { pm::raise<pm::MetadataWriteFailure>(u"/project/.lock", u"busy"); };
        const auto message = test::messageOf<pm::MetadataWriteFailure>([&] { write(store, existing); });
        EXPECT_NE(message.find("/project/.lock"), std::string::npos) << message;
        EXPECT_EQ(message.find(file_.string()), std::string::npos) << message;
        EXPECT_EQ(fs::exists(file_) ? test::readBytes(file_) : "",
                  existing == operations::Existing::keep ? "" : "before");
        EXPECT_EQ(std::distance(fs::directory_iterator(folder_.std()), {}), fs::exists(file_) ? 1 : 0);
    }
}

}  // namespace
