/// A plug-in that starts as METADATA_TEST_PLUGIN says: at once, "slow", or "failing".
#include <chrono>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>
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
        const char* value = std::getenv("METADATA_TEST_PLUGIN");
        const std::string behaviour = value ? value : "";
        if (behaviour == "failing")
            throw std::runtime_error("failing on purpose");
        if (behaviour == "slow")
            std::this_thread::sleep_for(std::chrono::milliseconds(200));
        context.RegisterService<project::metadata::MetadataManagerFactory>(std::make_shared<Factory>());
    }

    void Stop(cppmicroservices::BundleContext /*context*/) override {}
};

}  // namespace

CPPMICROSERVICES_EXPORT_BUNDLE_ACTIVATOR(Activator)
