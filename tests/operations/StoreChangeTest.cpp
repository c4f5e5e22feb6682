// What a change of a whole project takes.

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "host/Interruption.hpp"
#include "host/Text.hpp"
#include "operations/StoreChange.hpp"
#include "project/metadata/FactoryRegistry.hpp"
#include "project/metadata/MetadataNodeSpecification.hpp"
#include "tests/support/FolderEvents.hpp"
#include "tests/support/TempFolder.hpp"

namespace {

namespace pm = project::metadata;

pm::MetadataPath makePath(const char16_t* location) {
    return pm::MetadataPath({pm::PathElement(u"File", location)});
}

class StoreChangeTest : public testing::TestWithParam<const char16_t*> {};

INSTANTIATE_TEST_SUITE_P(Stores, StoreChangeTest, testing::Values(u"fixedPath", u"monolithic"),
                         [](const auto& store) { return host::toUtf8(store.param); });

TEST_P(StoreChangeTest, NodesAndTheirOrderAreOneBatch) {
    const test::TempFolder folder;
    const auto store = pm::getNamedFactory(GetParam())->createManager(folder.path());
    const auto node = std::make_shared<pm::MetadataNodeSpecification>(u"Info");
    store->setNode(makePath(u"b"), *node);
    // Each batch has a scratch folder.
    const test::FolderEvents made(folder / "resources/project", IN_CREATE);

    operations::StoreChange change;
    change.nodes = {{makePath(u"a"), node}, {makePath(u"c"), node}};
    change.paths = {{makePath(u"c"), makePath(u"b"), makePath(u"a")}};
    operations::applyChange(*store, change);
    EXPECT_EQ(made.count(".pending"), 1U);
    EXPECT_EQ(store->getChildren({}), *change.paths);
    EXPECT_TRUE(store->hasNode(makePath(u"a")));

    // A node that goes is a batch between.
    change.nodes = {{makePath(u"a"), nullptr}, {makePath(u"d"), node}};
    change.paths = {{makePath(u"d"), makePath(u"a")}};
    operations::applyChange(*store, change);
    EXPECT_EQ(made.count(".pending"), 3U);
    EXPECT_EQ(store->getChildren({}), *change.paths);
    EXPECT_FALSE(store->hasNode(makePath(u"a")));
    EXPECT_TRUE(store->hasNode(makePath(u"d")));
}

TEST_P(StoreChangeTest, StopsBeforeTheOneBatchIsWritten) {
    const test::TempFolder folder;
    const auto store = pm::getNamedFactory(GetParam())->createManager(folder.path());
    const auto node = std::make_shared<pm::MetadataNodeSpecification>(u"Info");
    store->setNode(makePath(u"b"), *node);
    operations::StoreChange change;
    change.nodes = {{makePath(u"a"), node}};
    change.paths = {{makePath(u"a"), makePath(u"b")}};

    host::Interruption stop;
    stop.request();
    {
        const host::Interruption::Scope scope(stop);
        EXPECT_THROW(operations::applyChange(*store, change), host::InterruptedException);
    }
    EXPECT_EQ(store->getChildren({}), std::vector{makePath(u"b")});
    operations::applyChange(*store, change);
    EXPECT_EQ(store->getChildren({}), *change.paths);
}

}  // namespace
