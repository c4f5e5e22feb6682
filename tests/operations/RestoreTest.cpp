// Metadata takes the place of damaged metadata in one step: wherever the process dies or a call of the system fails,
// both are there as a whole, and what is left over is no loss.

#include <gtest/gtest.h>

#include <cstdio>
#include <map>

#include "host/SettingsService.hpp"
#include "host/Text.hpp"
#include "operations/Import.hpp"
#include "operations/ProjectCheck.hpp"
#include "operations/ProjectRepair.hpp"
#include "project/metadata/FactoryRegistry.hpp"
#include "project/metadata/MetadataNodeSpecification.hpp"
#include "project/metadata/MetadataRoots.hpp"
#include "tests/faults/SystemFaults.hpp"
#include "tests/support/ChildProcess.hpp"
#include "tests/support/TempFolder.hpp"

namespace {

namespace fs = std::filesystem;
namespace pm = project::metadata;

std::map<std::string, std::string> readFiles(const fs::path& folder) {
    std::map<std::string, std::string> files;
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
        if (entry.is_regular_file() && entry.path().filename() != ".lock")
            files[entry.path().lexically_relative(folder)] = test::readBytes(entry.path());
    }
    return files;
}

class RestoreTest : public testing::TestWithParam<const char16_t*> {
protected:
    /// A backup of one path, and a project whose core file is damaged.
    RestoreTest() {
        fs::create_directories(backedUp_);
        const auto store = pm::getNamedFactory(u"monolithic")->createManager(test::toPath(backedUp_));
        store->setNode(path_, pm::MetadataNodeSpecification(u"Backup"));
        test::writeBytes(damagedRoot_ / "resources/project/Project.xml", "<Pro");
        test::writeBytes(damagedRoot_ / "resources/project/note.txt", "note");
        damaged_ = readFiles(damagedRoot_ / "resources/project");
    }

    void import() const {
        operations::ImportRequest request;
        request.replace = true;
        request.store = host::toUtf8(GetParam());
        operations::Observer observer;
        operations::importFile(test::toPath(backedUp_ / "resources/project/Project.xml"), test::toPath(root_), request,
                               observer);
    }

    /// Imports in a process of its own that `plan` disturbs, and looks at what is there then.
    /// @return whether the process came to its end, and the new metadata is in place
    std::pair<bool, bool> tryOut(const test::FaultPlan& plan) const {
        fs::remove_all(root_);
        fs::copy(damagedRoot_, root_, fs::copy_options::recursive);
        test::ChildProcess child([&] {
            std::freopen("/dev/null", "w", stderr);
            pm::getRegisteredFactories();
            test::trapSystemCalls();
            test::startFaults(plan);
            try {
                import();
            } catch (...) {
                test::stopFaults();
                throw;
            }
            _exit(test::stopFaults().injected == 0 ? 0 : 2);
        });
        const bool isOver = child.wait() == 0;
        operations::Observer observer;
        const host::Path root = test::toPath(root_);
        // A repair must not take it away either.
        operations::repairProject(root, operations::checkProject(root, observer).problems, false);
        const fs::path folder = root_ / "resources/project";
        const bool isOld = readFiles(folder) == damaged_;
        if (!isOld) {
            EXPECT_TRUE(pm::getMetadataManagerFor(root)->hasNode(path_));
            EXPECT_EQ(readFiles(folder.native() + ".damaged"), damaged_);
        }
        return {isOver, !isOld};
    }

    test::TempFolder folder_{test::memoryFolder()};
    const fs::path backedUp_ = folder_ / "backed up", damagedRoot_ = folder_ / "damaged", root_ = folder_ / "project";
    const pm::MetadataPath path_{{{u"F", u"a"}}};
    std::map<std::string, std::string> damaged_;
};

INSTANTIATE_TEST_SUITE_P(Stores, RestoreTest, testing::Values(u"fixedPath", u"monolithic", u"sqlite"),
                         [](const auto& store) { return host::toUtf8(store.param); });

TEST_P(RestoreTest, NothingIsLostWhereverItEnds) {
    int killedOld = 0, killedNew = 0, failed = 0;
    for (int call = 1;; call += call % 5 == 0 ? 1 : 3) {
        SCOPED_TRACE(call);
        test::FaultPlan death;
        death.killAt = call;
        const auto [isOver, isNew] = tryOut(death);
        if (isOver)
            break;
        ++(isNew ? killedNew : killedOld);
        test::FaultPlan failure;
        failure.failAt = call;
        failed += tryOut(failure).second ? 0 : 1;
    }
    EXPECT_GT(killedOld, 20);
    EXPECT_GT(killedNew, 2);
    EXPECT_GT(failed, 20);
}

/// A host's settings are its own again once an operation of its is over.
TEST_P(RestoreTest, SettingsAreReplacedNoLongerThanAProjectIsMade) {
    const auto settings = host::SettingsService::getSettingsRoot();
    fs::copy(damagedRoot_, root_, fs::copy_options::recursive);
    import();
    EXPECT_EQ(host::SettingsService::getSettingsRoot(), settings);

    operations::ImportRequest request;
    request.store = host::toUtf8(GetParam());
    request.folder = host::toUtf8(pm::getSelectableRoots().back());
    operations::Observer observer;
    const fs::path root = folder_ / "new";
    operations::importFile(test::toPath(backedUp_ / "resources/project/Project.xml"), test::toPath(root), request,
                           observer);
    EXPECT_TRUE(fs::exists(root / *request.folder / "Project.xml"));
    EXPECT_EQ(host::SettingsService::getSettingsRoot(), settings);
}

}  // namespace
