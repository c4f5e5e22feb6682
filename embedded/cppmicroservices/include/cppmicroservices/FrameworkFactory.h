// Makes frameworks. A process may have several; they know nothing of each other.
#pragma once

#include "cppmicroservices/Framework.h"
#include "cppmicroservices/GlobalConfig.h"

namespace cppmicroservices {
inline namespace project_metadata {

class US_Framework_EXPORT FrameworkFactory {
public:
    /// A new framework, neither initialised nor started.
    Framework NewFramework();
};

}  // namespace project_metadata
}  // namespace cppmicroservices
