// Changes as file jobs, which a host can follow and stop.

#include <algorithm>
#include <limits>
#include <set>
#include <utility>

#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/Constants.h>
#include <cppmicroservices/Framework.h>

#include "host/FileUtils.hpp"
#include "host/ServiceFramework.hpp"
#include "project/metadata/FileJobManager.hpp"
#include "store_testing/RuleGroups.hpp"
#include "store_testing/ScratchProject.hpp"

namespace project::store_testing {

namespace {

using metadata::FileJobManager;
using Files = std::vector<host::Path>;

/// A `FileJobManager` that stores find before any other, for as long as this lives.
class RegisteredManager {
public:
    RegisteredManager() {
        const auto framework = host::ServiceFramework::getFramework();
        require(framework != nullptr, "there is no service framework to register a FileJobManager in");
        const cppmicroservices::ServiceProperties first{
            {cppmicroservices::Constants::SERVICE_RANKING, std::numeric_limits<int>::max()}};
        registration_ = framework->GetBundleContext().RegisterService<FileJobManager>(manager_, first);
    }

    ~RegisteredManager() {
        if (registration_)
            registration_.Unregister();
    }

    RegisteredManager(const RegisteredManager&) = delete;
    RegisteredManager& operator=(const RegisteredManager&) = delete;

    FileJobManager& operator*() const { return *manager_; }
    FileJobManager* operator->() const { return manager_.get(); }

private:
    std::shared_ptr<FileJobManager> manager_ = std::make_shared<FileJobManager>();
    cppmicroservices::ServiceRegistration<FileJobManager> registration_;
};

/// What a manager announced.
struct Announced {
    Files created, modified, deleted;
    int before = 0, after = 0;  ///< how often
};

void requireAll(const std::string& what, const Files& files, bool existing) {
    for (const host::Path& file : files) {
        require(host::FileUtils::existNoExcept(file) == existing, what + " \"" + file.accessName() + "\": expected " +
                                                                      (existing ? "to exist" : "not to exist") +
                                                                      ", found otherwise");
    }
}

/// Lets `manager` note in `announced` what it announces, and check it against what is on disk then.
void follow(FileJobManager& manager, Announced& announced) {
    manager.onPreWrite([&announced](const Files& created, const Files& modified, const Files& deleted) {
        requireAll("before a change, the new file", created, false);
        requireAll("before a change, the modified file", modified, true);
        requireAll("before a change, the deleted file", deleted, true);
        announced.created = created;
        announced.modified = modified;
        announced.deleted = deleted;
        ++announced.before;
        return nullptr;
    });
    manager.onPostWrite([&announced](const Files& created, const Files& modified, const Files& deleted) {
        requireAll("after a change, the new file", created, true);
        requireAll("after a change, the modified file", modified, true);
        requireAll("after a change, the deleted file", deleted, false);
        ++announced.after;
        return nullptr;
    });
}

/// Expects that every file that differs between `before` and `after` was announced. Hidden files and companions, such
/// as the log of a database, are the store's own business: locks, and what it writes while it works.
void requireEveryFileAnnounced(const std::string& what, const ScratchProject& project, const Announced& announced,
                               const std::map<std::string, std::string>& before,
                               const std::map<std::string, std::string>& after) {
    std::set<host::Path> named;
    for (const Files* files : {&announced.created, &announced.modified, &announced.deleted})
        named.insert(files->begin(), files->end());
    auto changed = before;
    for (const auto& [name, content] : after) {
        const auto [file, isNew] = changed.emplace(name, content);
        if (!isNew && file->second == content)
            changed.erase(file);
    }
    for (const auto& each : changed) {
        const host::Path file = project.root() / host::Path::fromAccessName(each.first);
        const bool isFolder = each.first.back() == '/';
        const bool isCompanion = std::any_of(named.begin(), named.end(), [&](const host::Path& other) {
            return file.text().size() > other.text().size() && file.text().rfind(other.text(), 0) == 0;
        });
        if (!isFolder && !isCompanion && file.fileName().text().front() != u'.')
            require(named.count(file) == 1, what + ": expected the file \"" + each.first +
                                                "\", which was written or removed, to be announced, found it was not");
    }
}

void announcesItsChanges(const ScratchProject& project) {
    const RegisteredManager manager;
    Announced seen;
    follow(*manager, seen);
    const auto store = project.open();
    // How many changes have been announced, each one before and after, and that the last one named a file.
    auto files = readFiles(project.root());
    const auto requireAnnounced = [&](const std::string& what, int times) {
        const auto before = std::exchange(files, readFiles(project.root()));
        requireEveryFileAnnounced(what, project, seen, before, files);
        require(seen.before == times && seen.after == times,
                what + ": expected " + std::to_string(times) + " announcements in all, found " +
                    std::to_string(seen.before) + " before and " + std::to_string(seen.after) + " after changes");
        require(!(seen.created.empty() && seen.modified.empty() && seen.deleted.empty()),
                what + ": expected the names of the files, found none");
    };
    store->setNode(path("a/b"), *node("1"));
    requireAnnounced("the first change", 1);
    const host::Path coreFile = project.metadataFolder() / u"Project.xml";
    require(std::find(seen.created.begin(), seen.created.end(), coreFile) != seen.created.end(),
            "the first change: expected the core file among the new files, found not");
    store->setNode(path("a/b"), *node("2"));
    requireAnnounced("setNode", 2);
    store->setNodes({{path("a/b"), node("3")}, {path("c"), node("3")}, {path("d"), node("3")}});
    requireAnnounced("setNodes", 3);
    store->setPaths(paths("d a/b"));
    requireAnnounced("setPaths", 4);
    store->removePaths(paths("a d"));
    requireAnnounced("removePaths", 5);
    store->removePaths(paths("a d"));
    store->setPaths({MetadataPath()});
    requireAnnounced("changes that change nothing", 5);
}

void subscribersCanStopAChange(const ScratchProject& project) {
    class Stop {};
    const auto refuse = [](const Files&, const Files&, const Files&) -> std::shared_ptr<metadata::ChangeGuard> {
        throw Stop();
    };
    const auto store = project.open();
    {
        const RegisteredManager manager;
        manager->onPreWrite(refuse);
        const auto before = readFiles(project.root());
        requireThrows<Stop>("the first change", "of the subscriber", [&] { store->setNode(path("a"), *node("1")); });
        requireSameFiles("after a first change that was stopped", before, readFiles(project.root()));
    }
    store->setNode(path("a"), *node("1"));
    const auto before = readFiles(project.root());
    {
        const RegisteredManager manager;
        manager->onPreWrite(refuse);
        requireThrows<Stop>("setNode", "of the subscriber", [&] { store->setNode(path("a"), *node("2")); });
        requireThrows<Stop>("setPaths", "of the subscriber", [&] { store->setPaths(paths("b")); });
        requireThrows<Stop>("removePath", "of the subscriber", [&] { store->removePath(path("a")); });
    }
    requireContent("after changes that were stopped", *store, "a(1)");
    requireSameFiles("after changes that were stopped", before, readFiles(project.root()));
    store->setNode(path("a"), *node("2"));
    requireContent("after the same change without that subscriber", *project.open(), "a(2)");
}

}  // namespace

std::vector<Rule> getNotificationRules() {
    return {
        {"AnnouncesItsChanges",
         "A change is one `FileJob` that the registered `FileJobManager` runs, so that its subscribers are told before "
         "and after it which files are new, modified and deleted, aside from hidden ones and those whose name is that "
         "of "
         "an announced one and more; a change that changes nothing is not announced.",
         announcesItsChanges},
        {"SubscribersCanStopAChange",
         "The error of a subscriber that refuses a change ends the operation, and the old content stays; of a first "
         "change there is nothing then, no folder either.",
         subscribersCanStopAChange},
    };
}

}  // namespace project::store_testing
