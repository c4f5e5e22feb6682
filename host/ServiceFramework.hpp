/// The service framework in which plug-ins register what they offer.
#pragma once

#include <memory>
#include <vector>

#include <cppmicroservices/Bundle.h>
#include <cppmicroservices/Framework.h>

#include "host/Export.hpp"
#include "host/Path.hpp"

namespace host {

/// Every operation may be called from any thread.
struct HOST_EXPORT ServiceFramework {
    ServiceFramework() = delete;

    /// The framework of this process; null while there is none.
    static std::shared_ptr<cppmicroservices::Framework> getFramework();

    /// Makes `framework`, which the caller has started, the one of this process from now on; null takes it away. What
    /// was installed in the one before stays there.
    static void setFramework(std::shared_ptr<cppmicroservices::Framework> framework);

    /// Installs every bundle in the folder `relative` of the host's installation, in the order of their file names,
    /// and returns them; none are started. A bundle that is installed already is returned again. Without a framework
    /// or without that folder there are none. A host may have several places for them, and says in a diagnostic record
    /// where it looked if it found none.
    /// @throws std::exception naming the file, if one of them is no bundle
    static std::vector<cppmicroservices::Bundle> installBundles(const Path& relative);
};

}  // namespace host
