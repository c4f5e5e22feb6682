// The error for problems with a service itself.
#pragma once

#include <stdexcept>

#include "cppmicroservices/GlobalConfig.h"

namespace cppmicroservices {
inline namespace project_metadata {

class US_Framework_EXPORT ServiceException : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

}  // namespace project_metadata
}  // namespace cppmicroservices
