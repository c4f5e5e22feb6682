// What several threads may do at once: everything with stores of their own, of one project too, and with files of their
// own. Worth most under the thread sanitizer.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <exception>
#include <thread>

#include "host/Interruption.hpp"
#include "project/metadata/FactoryRegistry.hpp"
#include "project/metadata/MetadataDamage.hpp"
#include "project/metadata/MetadataXml.hpp"
#include "project/metadata/SingleFileExport.hpp"
#include "project/metadata/Uuid.hpp"
#include "tests/stores/StoreHelpers.hpp"

using namespace test;
using namespace project::metadata;

namespace {

constexpr int threads = 4;
constexpr int rounds = 6;

/// Runs `work` with its number on each of several threads, which begin together. What one throws is thrown here.
template <class Work>
void runAtOnce(const Work& work) {
    std::array<std::exception_ptr, threads> failures;
    std::array<std::thread, threads> running;
    std::atomic<int> waiting = threads;
    for (std::size_t i = 0; i < threads; ++i) {
        running[i] = std::thread([&, i] {
            --waiting;
            while (waiting > 0)
                std::this_thread::yield();
            try {
                work(static_cast<int>(i));
            } catch (...) {
                failures[i] = std::current_exception();
            }
        });
    }
    for (std::thread& thread : running)
        thread.join();
    for (const std::exception_ptr& failure : failures) {
        if (failure)
            std::rethrow_exception(failure);
    }
}

class ThreadsTest : public testing::TestWithParam<std::u16string> {
protected:
    TempFolder folder_{memoryFolder()};
};

TEST_P(ThreadsTest, HaveStoresOfTheirOwn) {
    std::array<Content, threads> found;
    runAtOnce([&](int thread) {
        const host::Path root = folder_.path() / number(thread);
        for (int round = 0; round < rounds; ++round) {
            const auto store = getNamedFactory(GetParam())->createManager(root);
            for (int i = 0; i < 4; ++i)
                store->setNode(path({u"folder", number(i)}), *node(number(thread * 100 + round * 10 + i)));
            store->removePath(path({u"folder", number(round % 4)}));
            assignUuid(root, number(round));
            const host::Path file = root / (number(round) + u".xml");
            writeMetadataToSingleFile(root, file);
            writeToFile(*readFromFile(file), file, true);
            found.at(static_cast<std::size_t>(thread)) = read(*getMetadataManagerFor(root));
        }
    });
    for (int thread = 0; thread < threads; ++thread) {
        const auto describeLast = [&](int i) { return describe(*node(number(thread * 100 + (rounds - 1) * 10 + i))); };
        Content expected{{MetadataPath(), u""}, {path({u"folder"}), u""}};
        // Round 5 has removed the second, which it had just set.
        for (const int i : {0, 2, 3})
            expected.emplace_back(path({u"folder", number(i)}), describeLast(i));
        auto sorted = found.at(static_cast<std::size_t>(thread));
        std::sort(sorted.begin(), sorted.end());
        std::sort(expected.begin(), expected.end());
        EXPECT_EQ(sorted, expected) << "of thread " << thread;
    }
}

TEST_P(ThreadsTest, ChangeOneProjectTogether) {
    const host::Path root = folder_.path() / u"project";
    openStore(GetParam(), root)->addPath(MetadataPath());
    std::atomic<int> damages = 0;
    setDamageSink([&](const MetadataDamage& /*damage*/) { ++damages; });
    const host::Interruption wish;
    runAtOnce([&](int thread) {
        const auto store = getMetadataManagerFor(root);
        for (int round = 0; round < rounds; ++round) {
            const host::Interruption::Scope scope(wish);
            store->setNode(path({u"thread " + number(thread), number(round)}), *node(number(round)));
            for (const MetadataPath& other : store->getChildren(MetadataPath()))
                store->getChildren(other);
        }
    });
    setDamageSink(nullptr);
    EXPECT_EQ(damages, 0);
    const auto store = openStore(GetParam(), root);
    EXPECT_EQ(store->getChildren(MetadataPath()).size(), std::size_t{threads});
    for (int thread = 0; thread < threads; ++thread)
        EXPECT_EQ(store->getChildren(path({u"thread " + number(thread)})).size(), std::size_t{rounds});
}

INSTANTIATE_TEST_SUITE_P(Stores, ThreadsTest, testing::ValuesIn(builtStores()), nameOfStore);

}  // namespace
