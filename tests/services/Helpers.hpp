// What the tests of the service framework share.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "cppmicroservices/Bundle.h"
#include "cppmicroservices/BundleContext.h"
#include "cppmicroservices/Framework.h"
#include "cppmicroservices/FrameworkEvent.h"
#include "cppmicroservices/FrameworkFactory.h"
#include "cppmicroservices/ServiceObjects.h"
#include "tests/services/Greeter.hpp"

namespace tests {

/// The file of a test bundle.
inline std::string bundleFile(const std::string& name) {
    return std::string(SERVICES_TEST_BUNDLES) + "/" + name + ".so";
}

struct SimpleGreeter final : Greeter {
    explicit SimpleGreeter(std::string text = "hello") : text_(std::move(text)) {}
    std::string greet() const override { return text_; }

private:
    std::string text_;
};

/// The text of the Error that `action` throws; a failure of the test when it throws none.
template <class Error>
std::string messageOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const Error& error) {
        return error.what();
    }
    ADD_FAILURE() << "nothing was thrown";
    return {};
}

inline void stopAndWait(cppmicroservices::Framework& framework) {
    framework.Stop();
    framework.WaitForStop(std::chrono::milliseconds::zero());
}

/// A started framework and its context.
class StartedFramework : public testing::Test {
protected:
    StartedFramework() {
        framework.Start();
        context = framework.GetBundleContext();
    }
    ~StartedFramework() override { stopAndWait(framework); }

    cppmicroservices::Bundle install(const std::string& name) {
        const auto bundles = context.InstallBundles(bundleFile(name));
        EXPECT_EQ(bundles.size(), 1u);
        return bundles.at(0);
    }

    std::size_t countGreeters() { return context.GetServiceReferences<Greeter>().size(); }

    cppmicroservices::Framework framework = cppmicroservices::FrameworkFactory().NewFramework();
    cppmicroservices::BundleContext context;
};

}  // namespace tests
