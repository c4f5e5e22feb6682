/// A service framework and an installation of plug-ins. What happens once in a process makes each test that uses them
/// a process of its own.
#pragma once

#include <chrono>
#include <cstdlib>
#include <memory>
#include <string>

#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/FrameworkEvent.h>
#include <cppmicroservices/FrameworkFactory.h>

#include "host/ServiceFramework.hpp"
#include "tests/metadata/Helpers.hpp"

namespace test {

/// A service framework, and a place for the plug-ins that a test adds to those of the host's installation.
class InstallationTest : public testing::Test {
protected:
    InstallationTest() {
        std::filesystem::create_directories(plugins);
        setenv("PROJECT_METADATA_PREFIX", folder.std().c_str(), 1);
        setenv("XDG_DATA_HOME", folder.std().c_str(), 1);
        framework->Start();
        host::ServiceFramework::setFramework(framework);
    }

    ~InstallationTest() override {
        unsetenv("PROJECT_METADATA_PREFIX");
        unsetenv("XDG_DATA_HOME");
        host::ServiceFramework::setFramework(nullptr);
        framework->Stop();
        framework->WaitForStop(std::chrono::milliseconds::zero());
    }

    void install(const std::filesystem::path& plugin) { create_symlink(plugin, plugins / plugin.filename()); }

    const TempFolder folder;
    const std::filesystem::path plugins = folder / PLUGIN_FOLDER;
    const SettingsOverride noSettings{nullptr};
    const std::shared_ptr<cppmicroservices::Framework> framework =
        std::make_shared<cppmicroservices::Framework>(cppmicroservices::FrameworkFactory().NewFramework());
};

}  // namespace test
