// Offers the store "plain" to the library.

#include "PlainStore.hpp"
#include "store_support/StoreActivator.hpp"

CPPMICROSERVICES_EXPORT_BUNDLE_ACTIVATOR(store_support::StoreActivator<plain::describe>)
