// The store "plain" keeps the contract.

#include <cppmicroservices/BundleContext.h>

#include "PlainStore.hpp"
#include "host/ServiceFramework.hpp"
#include "store_testing/StoreContractTest.hpp"

namespace project::store_testing {

namespace {

std::shared_ptr<metadata::MetadataManagerFactory> makePlainFactory() {
    return store_support::makeStoreFactory(plain::describe(),
                                           host::ServiceFramework::getFramework()->GetBundleContext());
}

INSTANTIATE_TEST_SUITE_P(Stores, StoreContractTest, rulesFor({{"plain", makePlainFactory}}), nameOfRule);

}  // namespace

}  // namespace project::store_testing
