#include "operations/ProjectCheck.hpp"

#include <sys/stat.h>

#include <algorithm>
#include <optional>
#include <set>
#include <tuple>
#include <utility>

#include "host/FileUtils.hpp"
#include "host/MessageException.hpp"
#include "operations/Errors.hpp"
#include "operations/NodeMerge.hpp"
#include "operations/Project.hpp"
#include "operations/TreeWalk.hpp"
#include "operations/Workshop.hpp"
#include "project/metadata/AttributeRules.hpp"
#include "project/metadata/CoreFile.hpp"
#include "project/metadata/FactoryRegistry.hpp"
#include "project/metadata/FileUtilities.hpp"
#include "project/metadata/MetadataFiles.hpp"
#include "project/metadata/MetadataRoots.hpp"
#include "project/metadata/ProjectMetadataLocation.hpp"
#include "project/metadata/Uuid.hpp"
#include "project/metadata/UuidText.hpp"
#include "store_support/BatchJournal.hpp"
#include "store_support/Disk.hpp"
#include "store_support/FolderLock.hpp"

namespace operations {

namespace {

const std::u16string extension = u".xml";

class ProjectCheck {
public:
    ProjectCheck(const host::Path& root, Observer& observer)
        : root_(host::FileUtils::makeAbsolute(root)),  // as stores name their files
          location_(root_),
          folder_(location_.getDirectory()),
          progress_(observer.start("Checking")) {}

    CheckResult run() {
        const bool isInterrupted = checkLeftovers();
        if (!isInterrupted)
            requireCoreFile(root_);
        checkOtherFolders();
        readType();
        for (const host::Path& leftover : Workshop::findLeftovers(root_))
            add(leftover, 0, u"a conversion that was killed has left this folder", Remedy::removeWorkshop);
        if (!isInterrupted)
            openStore();
        checkFiles(folder_);
        if (!isInterrupted)
            checkStore();
        std::stable_sort(result_.problems.begin(), result_.problems.end(), [](const Problem& a, const Problem& b) {
            return std::tie(a.file, a.line) < std::tie(b.file, b.line);
        });
        std::sort(result_.others.begin(), result_.others.end());
        return std::move(result_);
    }

private:
    void add(const host::Path& file, int line, const std::u16string& problem, Remedy remedy = Remedy::none) {
        result_.problems.push_back({file, line, problem, remedy});
    }

    /// Of the file that has the node, if the store says which one that is.
    void addToPath(const pm::MetadataPath& path, const std::u16string& problem) {
        const auto* const lister = dynamic_cast<const pm::StoreFileLister*>(store_.get());
        const host::Path file = lister ? lister->getNodeFile(path) : host::Path();
        result_.problems.push_back({file.empty() ? location_.getCoreFile() : file, 0, problem, Remedy::none, path});
    }

    /// @return whether a change was interrupted
    bool checkLeftovers() {
        if (store_support::isLockHeld(folder_))
            return false;  // somebody is at work; the store waits for him
        const host::Path scratch = store_support::getScratchFolder(folder_);
        const host::Path lock = store_support::getLockFile(folder_);
        if (host::FileUtils::existNoExcept(scratch)) {
            add(scratch, 0, u"a change was interrupted, and the store is not looked at before it is completed",
                Remedy::complete);
            return true;
        }
        if (host::FileUtils::existNoExcept(lock))
            add(lock, 0, u"a program that has ended has left this lock", Remedy::removeLeftover);
        return false;
    }

    void checkOtherFolders() {
        for (const std::u16string& name : pm::getSupportedRoots()) {
            const host::Path other = root_ / name / pm::coreFileName();
            if (other != folder_ / pm::coreFileName() && host::FileUtils::existNoExcept(other))
                add(other, 0, u"it is not used, because the project has its metadata in \"" + folder_.text() + u'"');
        }
    }

    /// What cannot be read is told by the check of the file.
    void readType() {
        if (!location_.hasCoreFile())
            return;
        try {
            type_ = findType(location_.getCoreFile());
        } catch (const host::UserException&) {
            return;
        }
        if (!type_)
            add(location_.getCoreFile(), 0, u"it names no type of metadata");
    }

    /// What fails here fails again in `checkStore`, which tells it. Until then, and if the store cannot tell, all files
    /// are taken as its own.
    void openStore() {
        try {
            store_ = pm::getMetadataManagerFor(root_);
            if (const auto* const lister = dynamic_cast<const pm::StoreFileLister*>(store_.get())) {
                std::set<host::Path> files;
                for (const pm::StoreFile& file : lister->listFiles())
                    files.insert(file.file);
                ownFiles_ = std::move(files);
            }
        } catch (const project::exception::ProjectException&) {
        }
    }

    void checkFiles(const host::Path& folder) {
        std::vector<host::Path> entries = pm::listChildFiles(folder);
        std::sort(entries.begin(), entries.end());
        for (const host::Path& entry : entries) {
            if (entry == store_support::getScratchFolder(folder_) || entry == store_support::getLockFile(folder_))
                continue;
            struct stat status {};
            const bool isFolder = lstat(entry.accessName().c_str(), &status) == 0 && S_ISDIR(status.st_mode);
            if (isFolder)
                checkFiles(entry);
            else if (entry == folder_ / pm::coreFileName() || (folder == folder_ && pm::getMarkedUuid(entry)) ||
                     (!ownFiles_ || ownFiles_->count(entry) > 0))
                checkFile(entry);
            else
                result_.others.push_back(entry);
        }
    }

    void checkFile(const host::Path& file) {
        progress_->advance();
        ++result_.files;
        const std::u16string name = file.fileName().text();
        if (!pm::ends_with(name, extension))
            return;
        for (Problem& problem : checkXml(file))
            result_.problems.push_back(std::move(problem));
        const auto uuid = pm::getMarkedUuid(file);
        if (uuid && !pm::isUuid(host::toUtf8(*uuid)))
            add(file, 0, u"its name holds no UUID, which has hexadecimal digits in groups of 8, 4, 4, 4 and 12");
    }

    void checkStore() {
        attempt(location_.getCoreFile(), [&] {
            if (!store_)
                store_ = pm::getMetadataManagerFor(root_);
            if (!store_) {
                if (type_)
                    add(location_.getCoreFile(), 0,
                        u"there is no store for its type of metadata, \"" + *type_ + u"\"; there are: " +
                            host::fromUtf8(listStoreNames()));
                return;
            }
            std::set<host::Path> known;
            for (const Problem& problem : result_.problems)
                known.insert(problem.file);
            for (const pm::MetadataDamage& damage : findDamage(*store_))
                addDamage(damage, known.count(damage.file) > 0);
            walk();
        });
    }

    /// @param isKnown whether the check of the file has told why
    void addDamage(const pm::MetadataDamage& damage, bool isKnown) {
        const bool isOut = isOutOfReach(damage.file);
        const bool isMissing = !isOut && !store_support::exists(damage.file);
        const bool isCoreFile = damage.file == location_.getCoreFile();
        const bool isPathFile = !isCoreFile && pm::ends_with(damage.file.text(), extension);
        Remedy remedy = Remedy::none;
        if (damage.isForeign || isOut)
            remedy = Remedy::none;  // only who wrote it knows what it is worth; or it may be sound
        else if (isPathFile)
            remedy = isMissing ? Remedy::giveBack : Remedy::moveAside;
        else if (isCoreFile && !type_)
            remedy = Remedy::renew;  // a store that has been opened all the same has its paths elsewhere
        for (Problem& problem : result_.problems) {
            if (problem.file != damage.file)
                continue;
            problem.remedy = remedy;
            isKnown = isKnown || problem.problem == damage.problem;
        }
        if (!isKnown)
            add(damage.file, 0, damage.problem, remedy);
    }

    void walk() {
        const host::Path file = location_.getCoreFile();
        TreeWalk walk(*store_, {}, TreeWalk::anyDepth, [&] { attempt(file, [] { throw; }); });
        while (walk.next()) {
            progress_->advance();
            const bool isRoot = walk.depth() == 0;
            result_.paths += isRoot ? 0 : 1;
            attempt(file, [&] {
                if (!store_->hasPath(walk.path()))
                    addToPath(walk.path(), u"it is listed, but it is not there");
                if (const auto node = walk.readNode()) {
                    result_.paths += isRoot ? 1 : 0;  // as in `stat`
                    checkNode(walk.path(), *node);
                }
            });
        }
    }

    /// What cannot be read is told with its file, unless that is known for damaged already.
    template <class Action>
    void attempt(const host::Path& file, const Action& action) {
        try {
            action();
        } catch (const host::UserException& error) {
            // The arguments of this one are the file and the cause.
            const bool isReadFailure = dynamic_cast<const pm::MetadataReadFailure*>(&error) != nullptr;
            const auto& arguments = error.GetBaseMsgIDObj().arguments;
            const host::Path place = isReadFailure ? host::Path(std::get<std::u16string>(arguments.at(0))) : file;
            const auto isIn = [&place](const Problem& problem) { return problem.file == place; };
            if (std::any_of(result_.problems.begin(), result_.problems.end(), isIn))
                return;
            const std::u16string cause = isReadFailure ? std::get<std::u16string>(arguments.at(1)) : u"";
            add(place, 0, cause.empty() ? explain(error) : cause);
        }
    }

    void checkNode(const pm::MetadataPath& path, const pm::MetadataNode& node) {
        if (!pm::isValidKey(node.getName()))
            addToPath(path, u"the name of a node, \"" + node.getName() + u"\", is none of XML");
        if (node.getName() == conflictName)
            addToPath(path, u"a conflict of a merge is not settled");
        for (const std::u16string& key : node.getAttributeKeys()) {
            if (!pm::isValidKey(key))
                addToPath(path, u"the name of an attribute, \"" + key + u"\", is none of XML");
            if (!pm::isValidAttribute(node.get(key)))
                addToPath(path, u"the value of \"" + key + u"\" cannot be kept");
        }
        for (const auto& child : node.getChildNodes())
            checkNode(path, *child);
    }

    host::Path root_;
    pm::ProjectMetadataLocation location_;
    host::Path folder_;
    std::optional<std::u16string> type_;
    std::unique_ptr<pm::MetadataManager> store_;
    std::optional<std::set<host::Path>> ownFiles_;
    CheckResult result_;
    std::unique_ptr<Progress> progress_;
};

}  // namespace

CheckResult checkProject(const host::Path& root, Observer& observer) {
    requireRoot(root);  // an empty one is no name for the current folder
    return ProjectCheck(root, observer).run();
}

}  // namespace operations
