// The shared object of a bundle. May be used from any thread.
#pragma once

#include <string>

#include "cppmicroservices/BundleActivator.h"
#include "cppmicroservices/BundleInitialization.h"

namespace cppmicroservices {
inline namespace project_metadata {
namespace detail {

/// What the framework found in a shared object; both pointers stay valid to the end of the process.
struct SharedObject {
    const BundleDescriptor* descriptor = nullptr;
    /// Null when the bundle exports no activator.
    BundleActivator* (*createActivator)() = nullptr;
};

/// Loads the bundle at `path`, which is taken as a path even without a "/". It is never unloaded: code of a bundle may
/// be needed as long as anybody holds one of its service objects, or the deleter or the type information of one.
/// Throws std::runtime_error with the cause, in the dynamic linker's words where it refuses the file.
SharedObject loadBundle(const std::string& path);

}  // namespace detail
}  // namespace project_metadata
}  // namespace cppmicroservices
