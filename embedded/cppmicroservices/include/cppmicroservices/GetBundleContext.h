// The context of the bundle that the calling code is part of. May be called from any thread.
#pragma once

#include "cppmicroservices/BundleContext.h"
#include "cppmicroservices/BundleInitialization.h"

namespace cppmicroservices {
inline namespace project_metadata {

namespace detail {
US_Framework_EXPORT BundleContext contextOf(const BundleDescriptor& bundle);
}

/// An invalid context while the bundle is not active.
static inline BundleContext GetBundleContext() {
    return detail::contextOf(us_this_bundle);
}

}  // namespace project_metadata
}  // namespace cppmicroservices
