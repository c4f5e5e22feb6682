// The properties that a service is registered with. Keys are compared without regard to case.
#pragma once

#include <string>
#include <unordered_map>

#include "cppmicroservices/Any.h"

namespace cppmicroservices {

using ServiceProperties = std::unordered_map<std::string, Any>;

}  // namespace cppmicroservices
