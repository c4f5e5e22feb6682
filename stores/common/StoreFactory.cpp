#include "stores/common/StoreFactory.hpp"

#include <stdexcept>
#include <utility>

#include <cppmicroservices/ServiceReference.h>

#include "project/metadata/FileJobManager.hpp"
#include "project/metadata/MetadataErrors.hpp"
#include "project/metadata/ProjectMetadataLocation.hpp"

namespace stores {

using project::metadata::FileJob;
using project::metadata::FileJobManager;
using project::metadata::MetadataManager;
using project::metadata::MetadataReadFailure;
using project::metadata::ProjectMetadataLocation;

namespace {

std::shared_ptr<FileJobManager> findJobManager(cppmicroservices::BundleContext& context) {
    try {
        if (const auto reference = context.GetServiceReference<FileJobManager>()) {
            if (auto manager = context.GetService(reference))
                return manager;
        }
    } catch (const std::invalid_argument&) {
        // It was unregistered just now.
    }
    return std::make_shared<FileJobManager>();
}

}  // namespace

StoreFactory::StoreFactory(StoreKind kind, const cppmicroservices::BundleContext& context)
    : kind_(std::move(kind)), context_(context) {}

std::unique_ptr<MetadataManager> StoreFactory::createManager(const host::Path& root) {
    const ProjectMetadataLocation location(root);
    const auto coreFile = location.locateCoreFile();
    if (coreFile) {
        const std::u16string type = location.getMetadataType().value_or(u"");
        if (type != kind_.name) {
            project::metadata::raise<MetadataReadFailure>(
                coreFile->text(), u"its metadata is of the type \"" + type + u"\", not \"" + kind_.name + u"\"");
        }
    }
    return kind_.open(location.getDirectory(), [context = context_](FileJob job) mutable {
        std::vector<FileJob> jobs;
        jobs.push_back(std::move(job));
        findJobManager(context)->process(std::move(jobs));
    });
}

bool StoreFactory::canManage(const host::Path& root) {
    return ProjectMetadataLocation(root).getMetadataType() == kind_.name;
}

std::u16string StoreFactory::getName() {
    return kind_.name;
}

std::u16string StoreFactory::getDescription() {
    return kind_.description;
}

}  // namespace stores
