// The service that the test bundles offer.
#pragma once

#include <string>

namespace tests {

struct Greeter {
    virtual ~Greeter() = default;
    virtual std::string greet() const = 0;
};

}  // namespace tests
