#include "store_support/StoreFactory.hpp"

#include <algorithm>
#include <stdexcept>

#include <cppmicroservices/ServiceReference.h>

#include "host/FileUtils.hpp"
#include "project/metadata/CoreFile.hpp"
#include "project/metadata/FileJobManager.hpp"
#include "project/metadata/FileUtilities.hpp"
#include "project/metadata/ProjectMetadataLocation.hpp"
#include "project/metadata/Uuid.hpp"
#include "store_support/BatchJournal.hpp"
#include "store_support/CoreFileType.hpp"
#include "store_support/XmlFile.hpp"

namespace store_support {

using project::metadata::FileContent;
using project::metadata::FileJob;
using project::metadata::FileJobManager;
using project::metadata::MetadataFileFormat;
using project::metadata::MetadataManager;
using project::metadata::ProjectMetadataLocation;

namespace {

/// The registered manager, null if there is none, or the plug-in or the whole framework has stopped.
std::shared_ptr<FileJobManager> findJobManager(cppmicroservices::BundleContext& context) {
    try {
        if (!context)
            return nullptr;
        if (const auto reference = context.GetServiceReference<FileJobManager>())
            return context.GetService(reference);
    } catch (const std::invalid_argument&) {
        // It was unregistered just now.
    } catch (const std::runtime_error&) {
        if (context)
            throw;  // otherwise it is the context that has become invalid just now
    }
    return nullptr;
}

/// Whether there is nothing in the metadata folder `folder` but the core file, markers and hidden files. Then nobody
/// can open the project if the core file is damaged; otherwise another kind of store may be able to.
bool hasOnlyCoreFile(const Path& folder) {
    const auto files = project::metadata::listChildFiles(folder);
    return std::all_of(files.begin(), files.end(), [](const Path& file) {
        const std::u16string name = file.fileName().text();
        return name == coreFileName() || name.front() == u'.' || project::metadata::getMarkedUuid(file);
    });
}

/// @return true
/// @throws MetadataReadFailure if `coreFile` is damaged anywhere
bool requireSound(const Path& coreFile) {
    const XmlFile xml = readXmlFile(coreFile);
    if (!xml.problem.empty())
        raise<MetadataReadFailure>(coreFile.text(), xml.problem);
    return true;
}

class StoreFactory : public project::metadata::MetadataManagerFactory {
public:
    StoreFactory(StoreKind kind, const cppmicroservices::BundleContext& context)
        : kind_(std::move(kind)), context_(context) {}

    std::unique_ptr<MetadataManager> createManager(const Path& root) override;
    bool canManage(const Path& root) override;
    std::u16string getName() override { return kind_.name; }
    std::u16string getDescription() override { return kind_.description; }

protected:
    const StoreKind& kind() const noexcept { return kind_; }

private:
    std::optional<bool> isOfKind(const ProjectMetadataLocation& location) const;

    StoreKind kind_;
    cppmicroservices::BundleContext context_;
};

/// The factory of a kind with a file format.
class FileStoreFactory final : public StoreFactory, public MetadataFileFormat {
public:
    using StoreFactory::StoreFactory;

    std::vector<std::u16string> getFilePatterns() const override { return kind().fileFormat->getFilePatterns(); }
    std::optional<FileContent> readFile(const Path& file) const override { return kind().fileFormat->readFile(file); }
    void writeFile(const FileContent& content, const Path& file) const override {
        kind().fileFormat->writeFile(content, file);
    }
    void writePaths(const project::metadata::PathTeller& tell, const Path& file) const override {
        kind().fileFormat->writePaths(tell, file);
    }
};

std::unique_ptr<MetadataManager> StoreFactory::createManager(const host::Path& root) {
    // The current folder may be another one when the store is used.
    const ProjectMetadataLocation location(host::FileUtils::makeAbsolute(root));
    if (isOfKind(location) == false) {
        const Path coreFile = location.getCoreFile();
        raise<MetadataReadFailure>(coreFile.text(), u"its metadata is of the type \"" + readMetadataType(coreFile) +
                                                        u"\", not \"" + kind_.name + u"\"");
    }
    return kind_.open(location.getDirectory(), [context = context_](FileJob job) mutable {
        const auto manager = findJobManager(context);
        // Nobody is told. A store that is still open when everything else has stopped can be saved all the same.
        if (!manager)
            return job.run();
        std::vector<FileJob> jobs;
        jobs.push_back(std::move(job));
        manager->process(std::move(jobs));
    });
}

bool StoreFactory::canManage(const Path& root) {
    return isOfKind(ProjectMetadataLocation(root)) == true;
}

/// Whether the metadata at `location` is of this kind; nothing if there is none.
std::optional<bool> StoreFactory::isOfKind(const ProjectMetadataLocation& location) const {
    // The core file itself may be part of a change that was interrupted.
    settle(location.getDirectory());
    try {
        const auto coreFile = location.locateCoreFile();
        if (!coreFile)
            return std::nullopt;
        return readMetadataType(*coreFile) == kind_.name && (kind_.isAllInCoreFile || requireSound(*coreFile));
    } catch (const MetadataReadFailure&) {
        const Path folder = location.getDirectory();
        if (kind_.hasContentIn && kind_.hasContentIn(folder))
            return true;
        if (hasOnlyCoreFile(folder))
            throw;
        return false;
    }
}

}  // namespace

std::shared_ptr<project::metadata::MetadataManagerFactory> makeStoreFactory(
    StoreKind kind, const cppmicroservices::BundleContext& context) {
    if (kind.fileFormat)
        return std::make_shared<FileStoreFactory>(std::move(kind), context);
    return std::make_shared<StoreFactory>(std::move(kind), context);
}

}  // namespace store_support
