/// custom_host FOLDER: a host application that has settings and a service framework of its own, follows what the stores
/// write, and lets its user cancel. All else it leaves to the embedded host.

#include <chrono>
#include <iostream>
#include <map>
#include <stdexcept>

#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/Framework.h>
#include <cppmicroservices/FrameworkEvent.h>
#include <cppmicroservices/FrameworkFactory.h>

#include "host/FileSystem.hpp"
#include "host/Interruption.hpp"
#include "host/ServiceFramework.hpp"
#include "host/SettingsService.hpp"
#include "project/metadata/FactoryRegistry.hpp"
#include "project/metadata/FileJobManager.hpp"
#include "project/metadata/MetadataNodeSpecification.hpp"

namespace pm = project::metadata;

namespace {

/// Where a real host would ask its own settings.
class Settings : public host::SettingsGroup {
public:
    explicit Settings(std::string name = "") : name_(std::move(name)) {}

    std::shared_ptr<const SettingsGroup> getGroup(const std::string& fullName) const override {
        return std::make_shared<Settings>(fullName);
    }

    std::u16string getText(const std::string& key, const std::string& /*qualifier*/) const override {
        static const std::map<std::string, std::u16string> values{
            {"korvex.project.creation.DefaultMetadataRoot", u"_TolvaneProject"},
            {"korvex.project.creation.DefaultMetadataManager", u"monolithic"},
            {"korvex.project.metadata.MakeReadOnlyMetadataWritable", u"no"}};
        const auto value = values.find(name_ + '.' + key);
        if (value == values.end())
            throw std::out_of_range("there is no setting " + name_ + '.' + key);
        return value->second;
    }

private:
    std::string name_;
};

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2)
        return 2;
    // Before anything else asks for them.
    const auto framework =
        std::make_shared<cppmicroservices::Framework>(cppmicroservices::FrameworkFactory().NewFramework());
    framework->Start();
    host::ServiceFramework::setFramework(framework);
    host::SettingsService::setSettingsRoot(std::make_shared<Settings>());

    const auto manager = std::make_shared<pm::FileJobManager>();
    manager->onPostWrite([](const auto& created, const auto& /*modified*/, const auto& /*deleted*/) {
        for (const host::Path& file : created)
            std::cout << "new: " << file.accessName() << '\n';
        return nullptr;
    });
    auto registration = framework->GetBundleContext().RegisterService<pm::FileJobManager>(manager);

    const host::Path folder = host::Path::fromAccessName(argv[1]);
    host::FileSystem::create_directories(folder);
    const auto store = pm::getDefaultFactory()->createManager(folder);
    store->setNode({}, pm::MetadataNodeSpecification(u"Pump"));

    host::Interruption cancel;
    try {
        const host::Interruption::Scope scope(cancel);
        cancel.request();  // as a button "Cancel" would, from another thread
        store->setNode({}, pm::MetadataNodeSpecification(u"Other"));
    } catch (const host::InterruptedException&) {
        if (store->getNode({})->getName() == u"Pump")
            std::cout << "stopped, and nothing changed\n";
    }

    // The end of an application: what is open can still be saved.
    registration.Unregister();
    framework->Stop();
    framework->WaitForStop(std::chrono::milliseconds::zero());
    store->setNode({}, pm::MetadataNodeSpecification(u"Last"));
    std::cout << "saved at the end\n";
}
