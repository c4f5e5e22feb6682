// The properties that a service is registered with. Keys are compared without regard to case.
#pragma once

#include <string>
#include <unordered_map>

#include "cppmicroservices/Any.h"

namespace cppmicroservices {
inline namespace project_metadata {

using ServiceProperties = std::unordered_map<std::string, Any>;

}  // namespace project_metadata
}  // namespace cppmicroservices
