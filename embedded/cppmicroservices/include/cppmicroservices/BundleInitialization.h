// Makes a shared object a bundle. One of its source files holds CPPMICROSERVICES_INITIALIZE_BUNDLE, and all are
// compiled with US_BUNDLE_NAME, the symbolic name, an identifier.
#pragma once

#ifndef US_BUNDLE_NAME
#error "define US_BUNDLE_NAME, the bundle's symbolic name"
#endif

#include "cppmicroservices/GlobalConfig.h"

namespace cppmicroservices {
inline namespace project_metadata {
namespace detail {

/// What a bundle's shared object says about itself. Its address is the bundle's identity within the process.
struct BundleDescriptor {
    const char* symbolicName;
};

}  // namespace detail
}  // namespace project_metadata
}  // namespace cppmicroservices

extern "C" {
/// Every bundle's own; hidden, so that no bundle can see that of another.
US_ABI_LOCAL extern const cppmicroservices::detail::BundleDescriptor us_this_bundle;
/// How the framework gets at it.
US_ABI_EXPORT const cppmicroservices::detail::BundleDescriptor* us_bundle_descriptor();
}

#define CPPMICROSERVICES_INITIALIZE_BUNDLE                                                      \
    const cppmicroservices::detail::BundleDescriptor us_this_bundle = {US_STR(US_BUNDLE_NAME)}; \
    const cppmicroservices::detail::BundleDescriptor* us_bundle_descriptor() {                  \
        return &us_this_bundle;                                                                 \
    }
