// How much memory stores take for each node of a large project, beyond what their user has passed.

#include <gtest/gtest.h>
#include <malloc.h>

#include <functional>
#include <map>

#include "project/metadata/WholeContentWrite.hpp"
#include "tests/stores/StoreHelpers.hpp"
#include "tests/support/ChildProcess.hpp"

// The sanitizers have a heap of their own.
#if !defined(ADDRESS_SANITIZER) && !defined(THREAD_SANITIZER)

using namespace test;

namespace {

constexpr int folders = 30;
constexpr int filesInFolder = 99;
constexpr int count = folders * (filesInFolder + 1);
constexpr std::size_t bytesAnyhow = 500'000;

std::vector<MetadataPath> makePaths() {
    std::vector<MetadataPath> paths{path({})};
    for (int i = 0; i < folders; ++i) {
        paths.push_back(path({u"module " + number(i)}));
        for (int j = 0; j < filesInFolder; ++j)
            paths.push_back(path({u"module " + number(i), u"source " + number(j) + u".c"}));
    }
    return paths;
}

/// About 200 bytes of XML, with another one in it.
std::shared_ptr<MetadataNode> makeNode(int revision) {
    auto result = node(number(revision));
    result->put(u"Name", u"a name of some length");
    result->put(u"Uuid", u"01234567-89ab-cdef-0123-456789abcdef");
    result->put(u"Comment", u"caf\u00E9 \U0001F600");
    MetadataNode& child = result->createChildNode(u"Settings");
    child.put(u"Optimise", u"true");
    child.put(u"Level", u"2");
    return result;
}

std::map<MetadataPath, std::shared_ptr<MetadataNode>> makeNodes(const std::vector<MetadataPath>& paths, int revision) {
    std::map<MetadataPath, std::shared_ptr<MetadataNode>> nodes;
    for (const MetadataPath& each : paths)
        nodes[each] = makeNode(revision++);
    return nodes;
}

int readAll(const MetadataManager& store, const MetadataPath& top) {
    int nodes = store.hasNode(top) && store.getNode(top) ? 1 : 0;
    for (const MetadataPath& child : store.getChildren(top))
        nodes += readAll(store, child);
    return nodes;
}

/// Throws if `work` takes more than `limit` bytes a node at any moment, and some that do not grow with the project.
void checkPeak(std::size_t limit, const char* name, const std::function<void()>& work) {
    // All of it comes from one place, which is as large as the peak when nothing is given back.
    mallopt(M_MMAP_THRESHOLD, 1 << 30);
    mallopt(M_TRIM_THRESHOLD, 1 << 30);
    malloc_trim(0);
    const auto before = mallinfo2();
    const std::size_t free = before.arena - before.uordblks;
    work();
    const std::size_t taken = mallinfo2().arena - before.uordblks;
    // What lay in pieces before and could not be used is not counted twice.
    const std::size_t peak = taken - std::min(taken, free);
    if (peak > count * limit + bytesAnyhow)
        throw std::runtime_error(std::string(name) + " takes " + std::to_string(peak / count) + " bytes a node");
}

class MemoryTest : public testing::TestWithParam<std::u16string> {};

TEST_P(MemoryTest, IsBoundedForEachNode) {
    const TempFolder folder;
    constexpr std::size_t limit = 1024;
    const auto inItsOwnProcess = [&](const auto& work) { EXPECT_EQ(ChildProcess(work).wait(), 0); };
    const auto open = [&] { return openStore(GetParam(), folder.path()); };
    const auto write = [&](const char* name, int revision) {
        const auto paths = makePaths();
        const auto nodes = makeNodes(paths, revision);
        checkPeak(limit, name, [&] {
            const auto store = open();
            store->setNodes(nodes);
            store->setPaths(paths);
        });
    };
    const auto writeWhole = [&] {
        const TempFolder other;
        const auto paths = makePaths();
        const auto nodes = makeNodes(paths, 0);
        checkPeak(limit, "first write as one change", [&] {
            const auto store = openStore(GetParam(), other.path());
            const project::metadata::WholeContentWrite writing(*store);
            store->setNodes(nodes);
            store->setPaths(paths);
        });
    };
    inItsOwnProcess(writeWhole);
    inItsOwnProcess([&] { write("first write", 0); });
    inItsOwnProcess([&] {
        checkPeak(limit, "reading", [&] {
            if (readAll(*open(), {}) != count + 1)
                throw std::runtime_error("there are too few nodes");
        });
    });
    inItsOwnProcess([&] { write("writing anew", 1'000'000); });
    inItsOwnProcess([&] { checkPeak(limit, "removal", [&] { open()->removePath({}); }); });
    EXPECT_EQ(open()->getChildren({}).size(), 0U);
}

INSTANTIATE_TEST_SUITE_P(Stores, MemoryTest, testing::ValuesIn(fileStores()), nameOfStore);

}  // namespace

#endif
