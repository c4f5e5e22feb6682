// Several processes on one project at once.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <limits>
#include <map>
#include <set>

#include "project/metadata/MetadataErrors.hpp"
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

/// Increments of shared counters. Some are read, and refused since somebody else was faster; none gets lost, and nobody
/// waits for ever.
TEST_P(SeveralProcessesTest, FourProcessesLoseNoIncrement) {
    constexpr int processes = 4;
    constexpr int counters = 3;
    const auto time = std::chrono::seconds(std::getenv("PROJECT_METADATA_SOAK") != nullptr ? 60 : 2);
    const auto counter = [](int index) { return path({u"counters", number(index)}); };
    const auto valueOf = [](const MetadataNode& node) { return std::stoi(host::toUtf8(node.get(u"Value"))); };
    {
        const auto store = open();
        for (int i = 0; i < counters; ++i)
            store->setNode(counter(i), *node(u"0"));
    }
    const Pipe reports;
    const auto increment = [&](int process) {
        const auto store = open();
        int done = 0;
        const auto end = std::chrono::steady_clock::now() + time;
        for (int i = process; std::chrono::steady_clock::now() < end; ++i) {
            const MetadataPath target = counter(i % counters);
            const int value = valueOf(*store->getNode(target));
            const auto next = node(number(value + 1));
            next->put(u"By", number(process));  // who writes what is there already has changed nothing
            try {
                store->setNode(target, *next);
                ++done;
            } catch (const project::metadata::MetadataWriteFailure& error) {
                if (std::string(error.what()).find("read it again first") == std::string::npos)
                    throw;
            }
            // Others list meanwhile, and orders change.
            if (i % 10 == 0) {
                std::vector<MetadataPath> order = store->getChildren(path({u"counters"}));
                std::rotate(order.begin(), order.begin() + 1, order.end());
                store->setPaths(order);
            }
        }
        reports.write(done);
    };
    std::deque<ChildProcess> children;
    for (int i = 0; i < processes; ++i)
        children.emplace_back([&] { increment(i); });
    for (ChildProcess& child : children)
        EXPECT_EQ(child.wait(), 0);
    int expected = 0;
    int least = std::numeric_limits<int>::max();
    while (const auto done = reports.read()) {
        expected += *done;
        least = std::min(least, *done);
    }
    const auto store = open();
    int found = 0;
    for (int i = 0; i < counters; ++i)
        found += valueOf(*store->getNode(counter(i)));
    std::printf("increments %s: %d, of which one process made %d\n", host::toUtf8(GetParam()).c_str(), expected, least);
    EXPECT_EQ(found, expected);
    EXPECT_GT(least, expected / processes / 4) << "one had to wait for the others";
}

INSTANTIATE_TEST_SUITE_P(Stores, SeveralProcessesTest, testing::ValuesIn(builtStores()), nameOfStore);

}  // namespace
