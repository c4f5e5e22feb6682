// Stores survive the death of their writer at any moment.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <functional>
#include <map>
#include <random>
#include <thread>

#include "tests/stores/StoreHelpers.hpp"
#include "tests/support/ChildProcess.hpp"
#include "tests/support/ServerSession.hpp"

using namespace test;

namespace {

using Clock = std::chrono::steady_clock;

/// An endless series of changes to a project, each of them one batch, and what is there after each.
struct Series {
    const char* name;
    void (*apply)(MetadataManager& store, int step);
    Content (*expected)(int step);
    friend std::ostream& operator<<(std::ostream& stream, const Series& series) { return stream << series.name; }
};

// Bulk: generation k is four folders of files. The even step 2k makes its paths the content, in its order: a fifth of
// the files goes, another comes, everything turns. The odd step 2k+1 gives every path a node with the value k, and
// each folder one file more.

/// Level by level.
std::vector<MetadataPath> bulkPaths(int generation, bool withNodes) {
    std::vector<MetadataPath> paths(1);
    for (int i = 0; i < 4; ++i)
        paths.push_back(path({u"folder " + number((generation + i) % 4)}));
    for (int i = 0; i < 4; ++i) {
        const std::u16string folder = u"folder " + number((generation + i) % 4);
        for (int j = 0; j < 10; ++j) {
            const int file = (generation * 3 + j) % 10;
            if ((generation + file) % 5 != 0)
                paths.push_back(path({folder, u"file " + number(file)}));
        }
        if (withNodes)
            paths.push_back(path({folder, u"of generation " + number(generation)}));
    }
    return paths;
}

void applyBulk(MetadataManager& store, int step) {
    const int generation = step / 2;
    if (step % 2 == 0)
        return store.setPaths(bulkPaths(generation, false));
    std::map<MetadataPath, std::shared_ptr<MetadataNode>> nodes;
    for (const MetadataPath& path : bulkPaths(generation, true))
        nodes[path] = node(number(generation));
    store.setNodes(nodes);
}

Content expectedBulk(int step) {
    const int generation = step / 2;
    const bool isOdd = step % 2 != 0;
    const int value = isOdd ? generation : generation - 1;
    const auto withNodes = value < 0 ? std::vector<MetadataPath>() : bulkPaths(value, true);
    Content content;
    for (const MetadataPath& path : bulkPaths(generation, isOdd)) {
        const bool hasNode = std::find(withNodes.begin(), withNodes.end(), path) != withNodes.end();
        content.emplace_back(path, hasNode ? describe(*node(number(value))) : u"");
    }
    return content;
}

// Single: step 3k adds a node with its ancestors, step 3k+1 gives one of those a node, step 3k+2 removes what step
// 3k-6 began.

MetadataPath singlePath(int k, std::size_t depth) {
    std::vector<std::u16string> names{u"branch " + number(k), u"sub", u"leaf"};
    names.resize(depth);
    return path(names);
}

void applySingle(MetadataManager& store, int step) {
    const int k = step / 3;
    if (step % 3 == 2)
        return store.removePath(singlePath(k - 2, 1));
    store.setNode(singlePath(k, step % 3 == 0 ? 3 : 2), *node(number(k)));
}

Content expectedSingle(int step) {
    const int last = step / 3;
    const int first = std::max(0, step % 3 == 2 ? last - 1 : last - 2);
    Content content{{MetadataPath(), u""}};
    for (std::size_t depth = 1; depth <= 3; ++depth) {
        for (int k = first; k <= last; ++k) {
            const bool hasNode = depth == 3 || (depth == 2 && (k < last || step % 3 != 0));
            content.emplace_back(singlePath(k, depth), hasNode ? describe(*node(number(k))) : u"");
        }
    }
    return content;
}

/// What is mixed in `found`, path by path; the orders of the paths if it is only those.
std::string explain(const Content& found, const Content& before, const Content& after) {
    std::map<std::string, std::array<std::string, 3>> table;
    std::array<std::string, 3> orders;
    for (const auto& [column, content] : {std::pair(0U, &found), std::pair(1U, &before), std::pair(2U, &after)}) {
        for (const auto& [path, text] : *content) {
            table[host::toUtf8(path.string())].at(column) = text.empty() ? "a branch" : host::toUtf8(text);
            orders.at(column) += "\n    " + host::toUtf8(path.string());
        }
    }
    std::string mixed;
    bool isBefore = true, isAfter = true;
    for (const auto& [path, cells] : table) {
        isBefore = isBefore && cells[0] == cells[1];
        isAfter = isAfter && cells[0] == cells[2];
        if (cells[0] != cells[1] || cells[0] != cells[2])
            mixed += "    " + path + ": " + cells[0] + ", before: " + cells[1] + ", after: " + cells[2] + "\n";
    }
    return !isBefore && !isAfter ? mixed : "order" + orders[0] + "\nbefore" + orders[1] + "\nafter" + orders[2];
}

/// What a store has no business to leave behind: scratch files and locks, and empty folders.
std::string listStrays(const TempFolder& project) {
    std::string strays;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(project / "resources/project")) {
        const std::string name = entry.path().filename();
        const bool isStray = entry.is_directory()
                                 ? std::filesystem::is_empty(entry)
                                 : name != "Project.xml" && name != "metadata.db" && name.find('=') == name.npos;
        if (isStray || name.front() == '.')
            strays += name + " ";
    }
    return strays;
}

class KillTest : public testing::TestWithParam<std::tuple<std::u16string, Series>> {
protected:
    std::unique_ptr<MetadataManager> open() const { return openStore(std::get<0>(GetParam()), folder_.path()); }

    /// Lets a process do `work` until it is killed, some time between now and `longestLife` from now.
    void runAndKill(std::chrono::microseconds longestLife, const std::function<void()>& work) {
        ChildProcess child(work);
        const auto life = std::uniform_int_distribution<std::int64_t>(0, longestLife.count())(random_);
        std::this_thread::sleep_for(std::chrono::microseconds(life));
        ASSERT_EQ(child.kill(), -SIGKILL);
        if (isOnServer_)
            waitForSessions();
    }

    /// Carries out the steps after `step` in another process until that is killed.
    /// @return the last step that was carried out for sure
    int killWriter(int step, std::chrono::microseconds longestLife) {
        runAndKill(longestLife, [&] {
            const auto store = open();
            for (int next = step + 1;; ++next) {
                series_.apply(*store, next);
                reports_.write(next);
            }
        });
        while (const auto report = reports_.read())
            step = *report;
        return step;
    }

    /// Whoever opens the project next and tidies up may be killed as well.
    void killRecovery() {
        runAndKill(std::chrono::milliseconds(2), [&] {
            for (;;)
                open()->removePath(path({u"nothing"}));
        });
    }

    const bool isOnServer_ = std::get<0>(GetParam()) == u"postgresql";
    const Series series_ = std::get<1>(GetParam());
    const unsigned seed_ = std::random_device()();
    std::mt19937 random_{seed_};
    TempFolder folder_{memoryFolder()};
    Pipe reports_;
};

TEST_P(KillTest, LeavesAllOfABatchOrNothing) {
#ifdef ADDRESS_SANITIZER
    constexpr int kills = 40;  // starting a process takes long there
#else
    const int kills = isOnServer_ ? 100 : 300;
#endif
    SCOPED_TRACE("seed " + std::to_string(seed_));
    const auto start = Clock::now();
    // From the last of these on, every step changes something, so that its writer tidies up what a dead one left.
    constexpr int firstSteps = 7;
    for (int i = 0; i < firstSteps; ++i)
        series_.apply(*open(), i);
    const auto stepTime = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - start) / firstSteps;

    int step = firstSteps - 1;
    int interrupted = 0;
    // Where a moment is seldom hit, it is tried more often: who meets no interrupted batch proves nothing.
    for (int i = 0; i < kills || (interrupted <= kills / 20 && i < 10 * kills); ++i) {
        ASSERT_NO_FATAL_FAILURE(step = killWriter(step, std::chrono::milliseconds(8) + 2 * stepTime));
        const bool hasLeftFiles = !listStrays(folder_).empty();
        if (i % 2 != 0)
            killRecovery();
        auto store = open();
        const Content found = read(*store);
        const Content before = series_.expected(step), after = series_.expected(step + 1);
        ASSERT_TRUE(found == before || found == after)
            << "a mixture after kill " << i << " in step " << step + 1 << ":\n"
            << explain(found, before, after);
        // What a server has begun for a writer leaves no files; there it is the answer that did not arrive.
        interrupted += hasLeftFiles || (isOnServer_ && found == after) ? 1 : 0;
        step += found == before ? 1 : 2;
        const auto begin = Clock::now();
        series_.apply(*store, step);
        EXPECT_LT(Clock::now() - begin, std::chrono::seconds(2)) << "the next writer had to wait";
        ASSERT_EQ(read(*store), series_.expected(step));
        store.reset();
        ASSERT_EQ(listStrays(folder_), "") << "after kill " << i << " and step " << step;
    }
    EXPECT_GT(interrupted, kills / 20) << "hardly a batch was interrupted";
}

INSTANTIATE_TEST_SUITE_P(Stores, KillTest,
                         testing::Combine(testing::ValuesIn(builtStores()),
                                          testing::Values(Series{"bulk", applyBulk, expectedBulk},
                                                          Series{"single", applySingle, expectedSingle})),
                         [](const auto& param) {
                             return host::toUtf8(std::get<0>(param.param)) + "_" + std::get<1>(param.param).name;
                         });

}  // namespace
