/// The framework of the process, and where its bundles come from.
#include "host/ServiceFramework.hpp"

#include "host/FileSystem.hpp"
#include "tests/host/Helpers.hpp"
#include "tests/support/TempFolder.hpp"

#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/FrameworkEvent.h>
#include <cppmicroservices/FrameworkFactory.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>

namespace fs = std::filesystem;
using host::ServiceFramework;
using test::TempFolder;

namespace {

const fs::path bundleFolder = HOST_TEST_BUNDLES;

/// Where the libraries of an installation are, below its prefix.
const fs::path libraryFolder = fs::path(HOST_LIBRARY_FOLDER).relative_path();

/// The process has another framework, or none, for as long as this object lives.
class FrameworkOverride {
public:
    explicit FrameworkOverride(std::shared_ptr<cppmicroservices::Framework> framework)
        : before_(ServiceFramework::getFramework()) {
        ServiceFramework::setFramework(std::move(framework));
    }

    ~FrameworkOverride() { ServiceFramework::setFramework(before_); }

    FrameworkOverride(const FrameworkOverride&) = delete;
    FrameworkOverride& operator=(const FrameworkOverride&) = delete;

private:
    std::shared_ptr<cppmicroservices::Framework> before_;
};

TEST(ServiceFramework, OneIsStartedWhenItIsFirstAskedFor) {
    EXPECT_EQ(test::runCommand(HOST_PROBE " frameworks"), "1 active\n");
}

TEST(ServiceFramework, CanBeReplacedAndTakenAway) {
    auto mine = std::make_shared<cppmicroservices::Framework>(cppmicroservices::FrameworkFactory().NewFramework());
    mine->Start();
    const test::ScopedVariable prefix("PROJECT_METADATA_PREFIX", bundleFolder);
    {
        const FrameworkOverride changed(mine);
        EXPECT_EQ(ServiceFramework::getFramework(), mine);
        ASSERT_EQ(ServiceFramework::installBundles(u".").size(), 4U);
        EXPECT_EQ(mine->GetBundleContext().GetBundles().size(), 5U);
        const FrameworkOverride none(nullptr);
        EXPECT_EQ(ServiceFramework::getFramework(), nullptr);
        EXPECT_TRUE(ServiceFramework::installBundles(u".").empty());
    }
    EXPECT_NE(ServiceFramework::getFramework(), mine);
    mine->Stop();
    mine->WaitForStop({});
}

TEST(ServiceFramework, BundlesAreInstalledOnceInTheOrderOfTheirNames) {
    const TempFolder folder;
    const fs::path bundles = folder / "some/\xC3\xA4";
    fs::create_directories(bundles / "folder.so");
    const std::string names[] = {"host_test_4", "host_test_2", "host_test_3", "host_test_1"};
    char file[] = "a.so";
    for (const std::string& name : names) {
        fs::copy(bundleFolder / (name + ".so"), bundles / file);
        ++file[0];
    }
    test::writeBytes(bundles / "c.so.bak", "no bundle");
    const test::ScopedVariable prefix("PROJECT_METADATA_PREFIX", folder.std());
    for (int round = 0; round < 2; ++round) {
        const auto installed = ServiceFramework::installBundles(u"some/\u00E4");
        ASSERT_EQ(installed.size(), std::size(names));
        for (std::size_t i = 0; i < installed.size(); ++i) {
            EXPECT_EQ(installed[i].GetSymbolicName(), names[i]);
            EXPECT_NE(installed[i].GetState(), cppmicroservices::Bundle::STATE_ACTIVE);
        }
    }
    EXPECT_TRUE(ServiceFramework::installBundles(u"nothing").empty());

    test::writeBytes(bundles / "broken.so", "no bundle");
    const auto text = test::catchText<std::exception>([] { ServiceFramework::installBundles(u"some/\u00E4"); });
    EXPECT_NE(text.find(bundles / "broken.so"), std::string::npos) << text;
}

/// A tree as an installation has it, with copies of the libraries and the bundles.
class Installation : public testing::Test {
protected:
    Installation() {
        const fs::path libraries = makeFolder(tree / libraryFolder);
        for (const fs::directory_entry& file : fs::directory_iterator(HOST_LIBRARIES)) {
            if (file.path().native().find(".so") != std::string::npos)
                fs::copy(file.path(), libraries / file.path().filename(), fs::copy_options::copy_symlinks);
        }
        fs::copy(bundleFolder, makeFolder(tree / "bin/plugins"));
    }

    static fs::path makeFolder(const fs::path& path) {
        fs::create_directories(path);
        return path;
    }

    /// The bundles that the probe finds if it is run in `current` with the libraries of the folder `libraries`.
    static std::string listBundles(const fs::path& libraries, const fs::path& current = "/") {
        return test::runCommand("cd '" + current.native() + "' && env -u PROJECT_METADATA_PREFIX LD_LIBRARY_PATH='" +
                                libraries.native() + "' " HOST_PROBE " bundles bin/plugins");
    }

    const TempFolder folder;
    const fs::path tree = folder / "tree";
    const std::string all = "host_test_1\nhost_test_2\nhost_test_3\nhost_test_4\n";
};

TEST_F(Installation, CanBeMoved) {
    EXPECT_EQ(listBundles(tree / libraryFolder), all);
    fs::rename(tree, folder / "moved");
    EXPECT_EQ(listBundles(folder / "moved" / libraryFolder), all);
    EXPECT_EQ(listBundles(fs::path("moved") / libraryFolder, folder.std()), all);
    fs::remove_all(folder / "moved/bin");
    EXPECT_EQ(listBundles(folder / "moved" / libraryFolder), "");
}

TEST_F(Installation, CanBeReachedThroughLinks) {
    fs::create_directory_symlink("tree", folder / "link");
    EXPECT_EQ(listBundles(folder / "link" / libraryFolder), all);

    // Links to the single files lead to the tree that these are in.
    const fs::path farm = makeFolder(folder / "farm" / libraryFolder);
    for (const fs::directory_entry& file : fs::directory_iterator(tree / libraryFolder))
        fs::create_symlink(file.path(), farm / file.path().filename());
    EXPECT_EQ(listBundles(farm), all);

    // The libraries may be elsewhere, when a link in the tree leads to them.
    fs::rename(tree / libraryFolder, folder / "elsewhere");
    fs::create_directory_symlink(folder / "elsewhere", tree / libraryFolder);
    EXPECT_EQ(listBundles(tree / libraryFolder), all);
}

}  // namespace
