// What the user of a store takes to be there, against a list of it.

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <vector>

#include "store_support/ToldNodes.hpp"
#include "tests/stores/StoreHelpers.hpp"

using namespace test;
using store_support::ToldNodes;

namespace {

using Steps = std::vector<project::metadata::PathElement>;

bool isIn(const Steps& top, const Steps& steps) {
    return steps.size() >= top.size() && std::equal(top.begin(), top.end(), steps.begin());
}

/// Paths of up to three steps.
std::vector<MetadataPath> makePaths() {
    std::vector<MetadataPath> paths{MetadataPath()};
    for (std::size_t i = 0; i < 13; ++i) {
        for (const char16_t* name : {u"a", u"b", u"c"}) {
            Steps steps = paths[i].getPath();
            steps.emplace_back(u"t", name);
            paths.emplace_back(std::move(steps));
        }
    }
    return paths;
}

TEST(ToldNodesTest, AreThoseOfAModel) {
    const std::vector<MetadataPath> paths = makePaths();
    std::mt19937 random(1);
    const auto pick = [&] { return paths[random() % paths.size()]; };
    ToldNodes told;
    std::map<Steps, bool> model;
    const auto remove = [&](const Steps& top) {
        for (auto& [steps, isThere] : model)
            isThere = isThere && !isIn(top, steps);
    };
    int expected = 0;
    for (int i = 0; i < 20'000; ++i) {
        const MetadataPath path = pick();
        const MetadataPath other = pick();
        const bool hasNode = random() % 2 == 0;
        const bool succeeds = random() % 4 != 0;
        ToldNodes::Change change(told);
        const auto before = model;
        switch (random() % 6) {
            case 0:
            case 1:
                told.tell(path, hasNode);
                model[path.getPath()] = hasNode;
                continue;
            case 2:
                change = told.setting({{path, nullptr}, {other, node(u"1")}});
                model[other.getPath()] = true;
                model[path.getPath()] = false;
                break;
            case 3:
                change = told.removing({path, other});
                remove(path.getPath());
                remove(other.getPath());
                break;
            case 4:
                change = told.renaming(path, other);
                if (path == other)
                    break;
                remove(path.getPath());
                if (before.count(path.getPath()) != 0 && before.at(path.getPath()))
                    model[other.getPath()] = true;
                break;
            default: {
                std::vector<MetadataPath> kept;
                for (const MetadataPath& each : paths) {
                    if (random() % 8 != 0)
                        kept.push_back(each);
                }
                change = told.keeping(kept);
                for (auto& [steps, isThere] : model) {
                    isThere = isThere && std::any_of(kept.begin(), kept.end(), [&, &top = steps](const auto& each) {
                                  return isIn(top, each.getPath()) && (!top.empty() || each.getPath().empty());
                              });
                }
            }
        }
        succeeds ? change.done() : void(model = before);
        for (const MetadataPath& each : paths) {
            const auto known = model.find(each.getPath());
            const bool isExpected = known != model.end() && known->second;
            expected += isExpected ? 1 : 0;
            ASSERT_EQ(told.isExpected(each), isExpected) << i;
        }
    }
    EXPECT_GT(expected, 10'000);
}

TEST(ToldNodesTest, WhatWasForgottenMayHaveBeenThere) {
    ToldNodes told(3);
    for (const char16_t* name : {u"a", u"b", u"c"})
        told.tell(path({name}), true);
    EXPECT_FALSE(told.isExpected(path({u"new"})));
    told.tell(path({u"d"}), true);
    for (const char16_t* name : {u"a", u"d", u"new"})
        EXPECT_TRUE(told.isExpected(path({name})));
    EXPECT_EQ(told.explainAbsence(path({u"d", u"x"}), 1), std::u16string(store_support::removedUnseen));
    EXPECT_NE(told.explainAbsence(path({u"a"}), 1), std::u16string(store_support::removedUnseen));
    told.tell(path({u"new"}), false);
    told.removing({path({u"a"})}).done();
    for (const char16_t* name : {u"a", u"new"})
        EXPECT_FALSE(told.isExpected(path({name})));
    EXPECT_FALSE(told.isExpected(path({u"a", u"x"})));
    EXPECT_TRUE(told.isExpected(path({u"b"})));
}

}  // namespace
