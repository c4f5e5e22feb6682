/// The contract of a store as a GoogleTest suite, one test a rule. Include it in one source file of a test program and
/// say there which stores are to be tested:
///
///     using project::store_testing::StoreContractTest;
///     INSTANTIATE_TEST_SUITE_P(Mine, StoreContractTest, project::store_testing::rulesFor({{"mine", makeMyFactory}}),
///                              project::store_testing::nameOfRule);
///
/// The tests of one process run one after the other.
#pragma once

#include <gtest/gtest.h>

#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "store_testing/StoreContract.hpp"

namespace project::store_testing {

/// A kind of store that is to be tested.
struct TestedStore {
    std::string name;  ///< an identifier
    FactoryMaker makeFactory;
};

/// One rule for one kind of store.
struct TestedRule {
    TestedStore store;
    Rule rule;
};

inline std::ostream& operator<<(std::ostream& stream, const TestedRule& tested) {
    return stream << tested.rule.name;
}

class StoreContractTest : public testing::TestWithParam<TestedRule> {};

TEST_P(StoreContractTest, Keeps) {
    const std::optional<std::string> breach = findBreach(GetParam().rule, GetParam().store.makeFactory);
    EXPECT_FALSE(breach) << GetParam().rule.statement << '\n' << *breach;
}

/// Every rule for every one of `stores`.
inline auto rulesFor(const std::vector<TestedStore>& stores) {
    std::vector<TestedRule> all;
    for (const TestedStore& store : stores) {
        for (const Rule& rule : getRules())
            all.push_back({store, rule});
    }
    return testing::ValuesIn(all);
}

/// The end of a test's name.
inline std::string nameOfRule(const testing::TestParamInfo<TestedRule>& info) {
    return info.param.store.name + '_' + info.param.rule.name;
}

}  // namespace project::store_testing
