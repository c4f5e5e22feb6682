// What a change of a whole project takes.

#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <memory>
#include <string>

#include "host/Interruption.hpp"
#include "host/Text.hpp"
#include "operations/StoreChange.hpp"
#include "project/metadata/FactoryRegistry.hpp"
#include "project/metadata/MetadataNodeSpecification.hpp"
#include "tests/support/TempFolder.hpp"

namespace {

namespace pm = project::metadata;

/// Counts the batches that are written in a metadata folder, by the scratch folders that come and go there.
class BatchCounter {
public:
    explicit BatchCounter(const std::filesystem::path& folder) : queue_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
        inotify_add_watch(queue_, folder.c_str(), IN_CREATE | IN_DELETE);
    }
    ~BatchCounter() { close(queue_); }

    BatchCounter(const BatchCounter&) = delete;
    BatchCounter& operator=(const BatchCounter&) = delete;

    /// Since this was asked last.
    int count() const {
        alignas(inotify_event) std::array<char, 4096> events{};
        const ssize_t size = read(queue_, events.data(), events.size());
        int batches = 0;
        for (ssize_t place = 0; place < size;) {
            const auto* const event = reinterpret_cast<const inotify_event*>(events.data() + place);
            batches += (event->mask & IN_CREATE) != 0 && std::string(event->name) == ".pending" ? 1 : 0;
            place += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
        }
        return batches;
    }

private:
    int queue_;
};

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
    const BatchCounter batches(folder / "resources/project");

    operations::StoreChange change;
    change.nodes = {{makePath(u"a"), node}, {makePath(u"c"), node}};
    change.paths = {{makePath(u"c"), makePath(u"b"), makePath(u"a")}};
    operations::applyChange(*store, change);
    EXPECT_EQ(batches.count(), 1);
    EXPECT_EQ(store->getChildren({}), *change.paths);
    EXPECT_TRUE(store->hasNode(makePath(u"a")));

    // A node that goes is a batch between.
    change.nodes = {{makePath(u"a"), nullptr}, {makePath(u"d"), node}};
    change.paths = {{makePath(u"d"), makePath(u"a")}};
    operations::applyChange(*store, change);
    EXPECT_EQ(batches.count(), 3);
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
