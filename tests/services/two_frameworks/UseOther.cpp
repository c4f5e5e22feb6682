// What the host does with its own framework.
#include <stdexcept>

#include "tests/services/two_frameworks/OtherFramework.hpp"

extern "C" OTHER_EXPORT void use() {
    auto framework = cppmicroservices::FrameworkFactory().NewFramework();
    framework.Init();
    framework.Start();
    auto bundles = framework.GetBundleContext().InstallBundles("somewhere");
    if (bundles.size() != 1 || bundles[0].GetSymbolicName() != "of the host")
        throw std::runtime_error("the host's framework found something else than its own bundle");
    framework.Stop();
    framework.WaitForStop(std::chrono::milliseconds::zero());
}
