#include "operations/ProjectRepair.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <set>
#include <system_error>
#include <utility>

#include "host/FileSystem.hpp"
#include "host/FileUtils.hpp"
#include "operations/Project.hpp"
#include "operations/TreeWalk.hpp"
#include "operations/Workshop.hpp"
#include "project/metadata/CoreMetadataHandler.hpp"
#include "project/metadata/FactoryRegistry.hpp"
#include "project/metadata/FileUtilities.hpp"
#include "project/metadata/ProjectMetadataLocation.hpp"
#include "store_support/BatchJournal.hpp"
#include "store_support/Disk.hpp"
#include "store_support/FolderLock.hpp"

namespace operations {

namespace {

class ProjectRepair {
public:
    ProjectRepair(const host::Path& root, bool isDryRun)
        : root_(host::FileUtils::makeAbsolute(root)),  // as the check names its files
          folder_(pm::ProjectMetadataLocation(root_).getDirectory()),
          isDryRun_(isDryRun) {}

    std::vector<Repair> run(const std::vector<Problem>& problems) {
        std::set<host::Path> damaged;
        std::set<host::Path> missing;
        std::optional<host::Path> renewed;
        for (const Problem& problem : problems) {
            if (problem.remedy == Remedy::complete)
                complete(problem.file);
            else if (problem.remedy == Remedy::removeLeftover)
                removeLock(problem.file);
            else if (problem.remedy == Remedy::removeWorkshop)
                removeWorkshop(problem.file);
            else if (problem.remedy == Remedy::moveAside)
                damaged.insert(problem.file);
            else if (problem.remedy == Remedy::giveBack)
                missing.insert(problem.file);
            else if (problem.remedy == Remedy::renew)
                renewed = problem.file;
        }
        if (renewed)
            renew(*renewed);
        if (!damaged.empty())
            moveAside(damaged);
        if (!missing.empty())
            giveBack(missing);
        return std::move(repairs_);
    }

private:
    void note(const host::Path& file, const std::u16string& what) { repairs_.push_back({file, what}); }

    void complete(const host::Path& scratch) {
        // Nobody can tell what the change was, and what it left may be the only copies of files.
        if (store_support::findJournalDamage(folder_)) {
            const auto place = isDryRun_ ? std::nullopt : store_support::setAsideDamagedChange(folder_);
            note(scratch, u"is moved aside, because its journal is damaged" + (place ? u", to " + place->text() : u""));
            return;
        }
        const bool isDecided = store_support::isInterrupted(folder_);
        if (!isDryRun_)
            const store_support::FolderLock lock(folder_);  // which completes what was decided, and forgets the rest
        note(scratch, isDecided ? u"is gone: the change that was interrupted is completed"
                                : u"is removed: the change that was interrupted had not been decided");
    }

    void removeLock(const host::Path& lock) {
        if (!isDryRun_)
            const store_support::FolderLock taken(folder_);
        note(lock, u"is removed");
    }

    void removeWorkshop(const host::Path& folder) {
        if (!isDryRun_)
            Workshop::removeLeftover(folder);
        note(folder, u"is removed");
    }

    /// Where `file` is kept aside.
    host::Path findShelter(const host::Path& file) const {
        const host::Path shelter(folder_.text() + u".damaged");
        const std::u16string relative = file.text().substr(folder_.text().size() + 1);
        host::Path target = shelter / relative;
        for (int number = 2; store_support::exists(target); ++number)
            target = host::Path((shelter / relative).text() + u'.' + host::fromUtf8(std::to_string(number)));
        return target;
    }

    /// Replaces the core file with one that says no more than the kind of store, which the store itself knows.
    void renew(const host::Path& coreFile) {
        const auto factories = pm::getRegisteredFactories();
        const auto factory = std::find_if(factories.begin(), factories.end(),
                                          [this](const auto& candidate) { return candidate->canManage(root_); });
        if (factory == factories.end())
            return;
        const host::Path target = findShelter(coreFile);
        if (!isDryRun_) {
            const store_support::FolderLock lock(folder_);
            store_support::makeFolderOfOwner(pm::getParentFolder(target));
            host::FileSystem::copy_file(coreFile, target, host::CopyOption::none);
            store_support::giveToOwnerOfFolder(target);
            // The file is in the way of nobody, so it need not be there whole at any moment.
            pm::CoreMetadataHandler(folder_, (*factory)->getName(), u"Project").createCoreMetadata();
        }
        repairs_.push_back({coreFile, u"is made anew; what was in it is in", target});
    }

    void moveAside(const std::set<host::Path>& files) {
        std::optional<store_support::FolderLock> lock;
        if (!isDryRun_)
            lock.emplace(folder_);
        for (const host::Path& file : files) {
            const host::Path target = findShelter(file);
            if (!isDryRun_) {
                store_support::makeFolderOfOwner(pm::getParentFolder(target));
                if (std::rename(file.accessName().c_str(), target.accessName().c_str()) != 0)
                    throw host::FileSystemException(file, std::error_code(errno, std::generic_category()));
            }
            repairs_.push_back({file, u"is moved to", target});
        }
    }

    /// The store lists paths whose files are missing; adding such a path writes its file.
    void giveBack(const std::set<host::Path>& files) {
        if (!isDryRun_) {
            const auto store = openProject(root_);
            for (TreeWalk walk(*store, {}); walk.next();) {
                if (walk.depth() > 0 && walk.descends() && !store->hasNode(walk.path()))
                    store->addPath(walk.path());
            }
        }
        for (const host::Path& file : files) {
            if (isDryRun_ || host::FileUtils::existNoExcept(file))
                note(file, u"is given back, without a node");
        }
    }

    host::Path root_;
    host::Path folder_;
    bool isDryRun_;
    std::vector<Repair> repairs_;
};

}  // namespace

std::vector<Repair> repairProject(const host::Path& root, const std::vector<Problem>& problems, bool isDryRun) {
    return ProjectRepair(root, isDryRun).run(problems);
}

}  // namespace operations
