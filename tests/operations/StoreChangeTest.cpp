// What a change of a whole project takes.

#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <array>

#include "operations/MetadataTree.hpp"
#include "operations/StoreChange.hpp"
#include "project/metadata/FactoryRegistry.hpp"
#include "project/metadata/MetadataNodeSpecification.hpp"
#include "tests/support/TempFolder.hpp"

namespace {

namespace pm = project::metadata;

/// Counts what comes into a folder under a new name, which is how stores write.
class ArrivalCounter {
public:
    explicit ArrivalCounter(const std::filesystem::path& folder) : queue_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
        // What else happens there keeps the kernel from taking two arrivals of one name for one.
        inotify_add_watch(queue_, folder.c_str(), IN_MOVED_TO | IN_CREATE);
    }
    ~ArrivalCounter() { close(queue_); }

    ArrivalCounter(const ArrivalCounter&) = delete;
    ArrivalCounter& operator=(const ArrivalCounter&) = delete;

    /// Since this was asked last.
    int count() const {
        alignas(inotify_event) std::array<char, 4096> events{};
        const ssize_t size = read(queue_, events.data(), events.size());
        int arrivals = 0;
        for (ssize_t place = 0; place < size;) {
            const auto* const event = reinterpret_cast<const inotify_event*>(events.data() + place);
            arrivals += (event->mask & IN_MOVED_TO) != 0 ? 1 : 0;
            place += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
        }
        return arrivals;
    }

private:
    int queue_;
};

pm::MetadataPath makePath(const char16_t* location) {
    return pm::MetadataPath({pm::PathElement(u"File", location)});
}

TEST(StoreChangeTest, NodesAndTheirOrderAreOneBatchWhereTheStoreCanDoThat) {
    const test::TempFolder folder;
    const auto store = pm::getNamedFactory(u"monolithic")->createManager(folder.path());
    const auto node = std::make_shared<pm::MetadataNodeSpecification>(u"Info");
    store->setNode(makePath(u"b"), *node);
    const ArrivalCounter written(folder / "resources/project");

    operations::StoreChange change;
    change.nodes = {{makePath(u"a"), node}, {makePath(u"c"), node}};
    change.paths = {{makePath(u"c"), makePath(u"b"), makePath(u"a")}};
    operations::applyChange(*store, change);
    EXPECT_EQ(written.count(), 1);
    EXPECT_EQ(store->getChildren({}), *change.paths);
    EXPECT_TRUE(store->hasNode(makePath(u"a")));

    // A node that goes is a batch between.
    change.nodes = {{makePath(u"a"), nullptr}, {makePath(u"d"), node}};
    change.paths = {{makePath(u"d"), makePath(u"a")}};
    operations::applyChange(*store, change);
    EXPECT_EQ(written.count(), 3);
    EXPECT_EQ(store->getChildren({}), *change.paths);
    EXPECT_FALSE(store->hasNode(makePath(u"a")));
    EXPECT_TRUE(store->hasNode(makePath(u"d")));
}

}  // namespace
