// Stores that take nodes and paths for one change make of them what two changes do.

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>

#include "project/metadata/MetadataErrors.hpp"
#include "project/metadata/WholeContentWrite.hpp"
#include "tests/stores/StoreHelpers.hpp"

using namespace test;
using project::metadata::MetadataWriteFailure;
using project::metadata::WholeContentWrite;

namespace {

using Nodes = std::map<MetadataPath, std::shared_ptr<MetadataNode>>;

/// What is random is the same in each run.
struct Case {
    explicit Case(unsigned seed) : random(seed) {
        std::vector<MetadataPath> all{MetadataPath()};
        for (const std::u16string a : {u"a", u"b", u"c"}) {
            all.push_back(path({a}));
            all.push_back(path({a, u"x"}));
            all.push_back(path({a, u"y"}));
        }
        for (const MetadataPath& each : all) {
            if (isIn(50))
                before[each] = node(u"old");
            if (isIn(60))
                nodes[each] = isIn(20) ? nullptr : node(u"new");
            if (isIn(60))
                paths.push_back(each);
        }
        std::shuffle(paths.begin(), paths.end(), random);
    }

    bool isIn(unsigned percent) { return random() % 100 < percent; }

    std::mt19937 random;
    Nodes before;                     ///< what is there
    Nodes nodes;                      ///< null: goes; not all of them stay, and not all are new
    std::vector<MetadataPath> paths;  ///< with or without the root path
};

class WholeContentTest : public testing::TestWithParam<std::u16string> {
protected:
    std::unique_ptr<MetadataManager> open(const TempFolder& folder) const {
        return openStore(GetParam(), folder.path());
    }

    static void write(MetadataManager& store, const Nodes& nodes, const std::vector<MetadataPath>& paths) {
        const WholeContentWrite writing(store);
        store.setNodes(nodes);
        store.setPaths(paths);
    }
};

INSTANTIATE_TEST_SUITE_P(Stores, WholeContentTest, testing::Values(u"fixedPath", u"monolithic"), nameOfStore);

TEST_P(WholeContentTest, IsTheSameAsTwoChanges) {
    for (unsigned seed = 0; seed < 40; ++seed) {
        const Case random(seed);
        const TempFolder folder, other;
        open(folder)->setNodes(random.before);
        open(other)->setNodes(random.before);
        const auto store = open(folder);
        write(*store, random.nodes, random.paths);
        const auto twice = open(other);
        twice->setNodes(random.nodes);
        twice->setPaths(random.paths);
        const Content content = read(*twice);
        EXPECT_TRUE(read(*store) == content) << seed << ": " << outline(*store) << " in place of " << outline(*twice);
        EXPECT_TRUE(read(*open(folder)) == content) << seed;
    }
}

TEST_P(WholeContentTest, WhatOthersHaveRemovedSinceDoesNotComeBack) {
    const TempFolder folder;
    const auto store = open(folder);
    store->setNodes({{path({u"a"}), node(u"old")}});
    write(*store, {{path({u"b"}), node(u"new")}}, {path({u"b"}), path({u"a"})});
    open(folder)->removePaths({path({u"a"}), path({u"b"})});
    for (const MetadataPath& gone : {path({u"a"}), path({u"b"})})
        EXPECT_THROW(store->setNode(gone, *node(u"back")), MetadataWriteFailure);
}

TEST_P(WholeContentTest, ReplacesAndRemovesNothingUnseen) {
    int refused = 0;
    int taken = 0;
    for (unsigned seed = 0; seed < 40; ++seed) {
        Case random(seed);
        const TempFolder folder;
        open(folder)->setNodes(random.before);
        const auto stale = open(folder);
        const bool isChanged = random.isIn(50);
        const Nodes changed{{path({u"a"}), node(u"theirs")}};
        if (isChanged)
            open(folder)->setNodes(changed);
        const Content before = read(*open(folder));
        try {
            write(*stale, random.nodes, random.paths);
            EXPECT_FALSE(isChanged && random.nodes.count(path({u"a"})) != 0) << seed;
            ++taken;
        } catch (const MetadataWriteFailure&) {
            EXPECT_TRUE(isChanged) << seed;
            EXPECT_TRUE(read(*open(folder)) == before) << seed;
            ++refused;
        }
    }
    EXPECT_GT(taken, 15);
    EXPECT_GT(refused, 8);
}

}  // namespace
