// Several processes on one project at once.

#include <gtest/gtest.h>

#include <chrono>
#include <map>
#include <set>

#include "tests/stores/StoreHelpers.hpp"
#include "tests/support/ChildProcess.hpp"

using namespace test;

namespace {

class SeveralProcessesTest : public testing::TestWithParam<std::u16string> {
protected:
    std::unique_ptr<MetadataManager> open() const { return openStore(GetParam(), folder_.path()); }

    TempFolder folder_{memoryFolder()};
};

TEST_P(SeveralProcessesTest, AReaderNeverSeesHalfABatch) {
    constexpr std::size_t generations = 50;
    constexpr int children = 20;
    const auto listing = [](int generation) {
        std::vector<MetadataPath> paths;
        for (int i = 0; i < children; ++i)
            paths.push_back(path({u"folder", number(generation) + u"-" + number(i)}));
        return paths;
    };
    open()->setPaths(listing(0));
    ChildProcess writer([&] {
        const auto store = open();
        for (int generation = 1;; ++generation)
            store->setPaths(listing(generation));
    });
    const auto reader = open();
    std::set<int> seen;
    const auto start = std::chrono::steady_clock::now();
    while (seen.size() < generations) {
        ASSERT_LT(std::chrono::steady_clock::now() - start, std::chrono::minutes(1)) << "saw only " << seen.size();
        const auto found = reader->getChildren(path({u"folder"}));
        ASSERT_FALSE(found.empty());
        const int generation = std::stoi(host::toUtf8(found.front().getLeaf().getLocation()));
        std::string names;
        for (const MetadataPath& path : found)
            names += host::toUtf8(path.getLeaf().getLocation()) + " ";
        ASSERT_TRUE(found == listing(generation)) << "a mixture: " << names;
        ASSERT_TRUE(seen.empty() || generation >= *seen.rbegin()) << generation << " after " << *seen.rbegin();
        seen.insert(generation);
    }
    EXPECT_EQ(writer.kill(), -SIGKILL);
}

TEST_P(SeveralProcessesTest, TwoWritersLoseNothing) {
    constexpr int count = 100;
    const auto write = [&](const std::u16string& name) {
        const auto store = open();
        for (int i = 0; i < count; ++i)
            store->setNode(path({u"shared", name + number(i)}), *node(name));
    };
    ChildProcess a([&] { write(u"a"); });
    ChildProcess b([&] { write(u"b"); });
    EXPECT_EQ(a.wait(), 0);
    EXPECT_EQ(b.wait(), 0);
    std::map<std::u16string, int> counts;
    const auto store = open();
    for (const MetadataPath& path : store->getChildren(path({u"shared"}))) {
        const std::u16string name = store->getNode(path)->get(u"Value");
        EXPECT_EQ(path.getLeaf().getLocation(), name + number(counts[name]++)) << "out of order";
    }
    EXPECT_EQ(counts, (std::map<std::u16string, int>{{u"a", count}, {u"b", count}}));
}

INSTANTIATE_TEST_SUITE_P(Stores, SeveralProcessesTest, testing::ValuesIn(builtStores()), nameOfStore);

}  // namespace
