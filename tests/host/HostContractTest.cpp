/// The embedded host keeps the contract of a host.
#include "host_testing/HostContract.hpp"

#include <gtest/gtest.h>

namespace {

class HostContractTest : public testing::TestWithParam<host_testing::Rule> {};

TEST_P(HostContractTest, Keeps) {
    const auto breach = host_testing::findBreach(GetParam());
    EXPECT_FALSE(breach) << GetParam().statement << '\n' << *breach;
}

INSTANTIATE_TEST_SUITE_P(Embedded, HostContractTest, testing::ValuesIn(host_testing::getRules()),
                         [](const auto& tested) { return std::string(tested.param.name); });

}  // namespace
