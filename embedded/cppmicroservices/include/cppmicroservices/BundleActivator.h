// What runs when a bundle starts and stops.
//
// The framework calls an activator from the thread that starts or stops the bundle, never from two at a time, and
// holds no lock meanwhile.
#pragma once

#ifndef US_BUNDLE_NAME
#error "define US_BUNDLE_NAME, the bundle's symbolic name"
#endif

#include "cppmicroservices/BundleContext.h"
#include "cppmicroservices/GlobalConfig.h"

namespace cppmicroservices {
inline namespace project_metadata {

struct BundleActivator {
    virtual ~BundleActivator() = default;

    /// Registers the bundle's services. The context is valid until the bundle has stopped. An exception makes the
    /// start fail, and undoes the registrations.
    virtual void Start(BundleContext context) = 0;

    /// Undoes what Start did; services that are still registered are unregistered afterwards. Called once, on the
    /// object that was started.
    virtual void Stop(BundleContext context) = 0;
};

}  // namespace project_metadata
}  // namespace cppmicroservices

extern "C" US_ABI_EXPORT cppmicroservices::BundleActivator* us_bundle_create_activator();

/// Makes the class, which has a default constructor, the bundle's activator. Stands outside of every namespace.
#define CPPMICROSERVICES_EXPORT_BUNDLE_ACTIVATOR(activatorType)       \
    cppmicroservices::BundleActivator* us_bundle_create_activator() { \
        return new activatorType();                                   \
    }
