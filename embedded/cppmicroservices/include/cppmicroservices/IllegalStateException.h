// The error for a bundle context that is used after its bundle or its framework has stopped.
#pragma once

#include <stdexcept>

#include "cppmicroservices/GlobalConfig.h"

namespace cppmicroservices {
inline namespace project_metadata {

class US_Framework_EXPORT IllegalStateException final : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

}  // namespace project_metadata
}  // namespace cppmicroservices
