// The framework: the bundle with id 0, which holds all others.
//
// Init makes its context valid, Start makes it active. Stop returns at once and goes on in a thread of its own, which
// stops the bundles in the reverse order of installation, uninstalls them and unregisters all services; a failure of
// their activators is not reported. WaitForStop waits for that thread, and belongs before the end of the program: a
// framework that is merely dropped does not call the activators. A stopped framework can be started again, without
// its bundles.
//
// Threads: as for Bundle.
#pragma once

#include <chrono>

#include "cppmicroservices/Bundle.h"
#include "cppmicroservices/GlobalConfig.h"

namespace cppmicroservices {
inline namespace project_metadata {

class FrameworkEvent;

class US_Framework_EXPORT Framework : public Bundle {
public:
    /// The framework that `bundle` is. Throws std::logic_error when that is an ordinary bundle.
    explicit Framework(Bundle bundle);

    /// Makes the context valid: bundles can be installed and services registered, before the framework is active. No
    /// effect on a started framework; std::logic_error while it stops.
    void Init();

    /// Waits until a framework that was initialised has stopped, for ever when `timeout` is zero. Reports
    /// FRAMEWORK_STOPPED or FRAMEWORK_WAIT_TIMEDOUT, which FrameworkEvent.h has. Not to be called by an activator.
    FrameworkEvent WaitForStop(const std::chrono::milliseconds& timeout);
};

}  // namespace project_metadata
}  // namespace cppmicroservices
