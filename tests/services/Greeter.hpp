// The services that the test bundles offer.
#pragma once

#include <string>

namespace tests {

struct Greeter {
    virtual ~Greeter() = default;
    virtual std::string greet() const = 0;
    /// The symbolic name that the bundle's code gets from its own context; empty when that is invalid.
    virtual std::string bundleName() const { return {}; }
};

}  // namespace tests
