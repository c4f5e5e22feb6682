#include "project/metadata/FactoryRegistry.hpp"

#include <mutex>
#include <stdexcept>
#include <utility>

#include <cppmicroservices/Bundle.h>
#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/Framework.h>
#include <cppmicroservices/LDAPFilter.h>
#include <cppmicroservices/ServiceInterface.h>
#include <cppmicroservices/ServiceObjects.h>
#include <cppmicroservices/ServiceReference.h>

#include "host/ServiceFramework.hpp"
#include "host/SettingsService.hpp"

namespace project::metadata {

namespace {

/// Installs and starts the plug-ins, once in the life of the process. Not done yet while there is no framework that
/// could hold them, nor when it failed.
void loadPlugins() {
    static std::mutex mutex;
    static bool done = false;
    const std::lock_guard lock(mutex);
    if (done || !host::ServiceFramework::getFramework())
        return;
    const host::Path folder = host::Path() / u"bin" / u"tuxa64" / u"ProjectMetadataProvider";
    for (cppmicroservices::Bundle& bundle : host::ServiceFramework::installBundles(folder))
        bundle.Start();
    done = true;
}

using FactoryReference = cppmicroservices::ServiceReference<MetadataManagerFactory>;

/// The factory behind `reference`; null if it has been unregistered since.
std::shared_ptr<MetadataManagerFactory> getFactory(cppmicroservices::BundleContext& context,
                                                   const FactoryReference& reference) {
    try {
        return context.GetServiceObjects(reference).GetService();
    } catch (const std::invalid_argument&) {
        return nullptr;
    }
}

}  // namespace

std::vector<std::shared_ptr<MetadataManagerFactory>> getRegisteredFactories() {
    loadPlugins();
    const auto framework = host::ServiceFramework::getFramework();
    if (!framework)
        return {};

    cppmicroservices::BundleContext context = framework->GetBundleContext();
    const auto references =
        context.GetServiceReferences<MetadataManagerFactory>(cppmicroservices::LDAPFilter().ToString());
    std::vector<std::shared_ptr<MetadataManagerFactory>> factories;
    factories.reserve(references.size());
    for (const auto& reference : references) {
        if (auto factory = getFactory(context, reference))
            factories.push_back(std::move(factory));
    }
    return factories;
}

std::shared_ptr<MetadataManagerFactory> getNamedFactory(const std::u16string& name) {
    for (std::shared_ptr<MetadataManagerFactory>& factory : getRegisteredFactories()) {
        if (factory->getName() == name)
            return std::move(factory);
    }
    return nullptr;
}

std::shared_ptr<MetadataManagerFactory> getDefaultFactory() {
    if (const auto settings = host::SettingsService::getSettingsRoot()) {
        const auto name = settings->getGroup("korvex.project.creation")->getText("DefaultMetadataManager", "");
        if (auto factory = getNamedFactory(name))
            return factory;
    }
    return getNamedFactory(u"fixedPath");
}

std::unique_ptr<MetadataManager> getMetadataManagerFor(const host::Path& root) {
    for (const std::shared_ptr<MetadataManagerFactory>& factory : getRegisteredFactories()) {
        if (factory->canManage(root))
            return factory->createManager(root);
    }
    return nullptr;
}

}  // namespace project::metadata
