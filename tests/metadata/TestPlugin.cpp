/// A plug-in that takes a while to start; it fails if METADATA_TEST_PLUGIN is set, or hangs if that is "hanging".
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string_view>
#include <thread>

#include <cppmicroservices/BundleActivator.h>

#include "project/metadata/MetadataManagerFactory.hpp"

namespace {

class Factory : public project::metadata::MetadataManagerFactory {
public:
    std::unique_ptr<project::metadata::MetadataManager> createManager(const host::Path& /*root*/) override {
        return nullptr;
    }
    bool canManage(const host::Path& /*root*/) override { return false; }
    std::u16string getName() override { return u"plugin"; }
    std::u16string getDescription() override { return u"for tests"; }
};

class Activator : public cppmicroservices::BundleActivator {
public:
    void Start(cppmicroservices::BundleContext context) override {
        const char* const wish = std::getenv("METADATA_TEST_PLUGIN");
        if (wish && std::string_view(wish) == "hanging") {
            std::fputs("hanging on purpose\n", stderr);
            for (;;)
                pause();
        }
        if (wish)
            throw std::runtime_error("failing on purpose");
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        context.RegisterService<project::metadata::MetadataManagerFactory>(std::make_shared<Factory>());
    }

    void Stop(cppmicroservices::BundleContext /*context*/) override {}
};

}  // namespace

CPPMICROSERVICES_EXPORT_BUNDLE_ACTIVATOR(Activator)
