/// The framework of the process, and where its bundles come from.
#include "host/ServiceFramework.hpp"

#include "tests/host/Helpers.hpp"

#include <cppmicroservices/Framework.h>

namespace fs = std::filesystem;
using host::ServiceFramework;

namespace {

TEST(ServiceFramework, BundlesAreInstalledOnceInTheOrderOfTheirNames) {
    const test::TempFolder folder;
    const fs::path bundles = folder / "some/\xC3\xA4";
    fs::create_directories(bundles / "folder.so");
    fs::copy(fs::path(HOST_TEST_BUNDLES) / "host_test_1.so", bundles / "b.so");
    fs::copy(fs::path(HOST_TEST_BUNDLES) / "host_test_2.so", bundles / "a.so");
    test::writeBytes(bundles / "a.so.bak", "no bundle");
    const test::ScopedVariable prefix("PROJECT_METADATA_PREFIX", folder.std());
    const auto framework = ServiceFramework::getFramework();
    for (int round = 0; round < 2; ++round) {
        const auto installed = ServiceFramework::installBundles(u"some/\u00E4");
        ASSERT_EQ(installed.size(), 2U);
        EXPECT_EQ(installed[0].GetSymbolicName(), "host_test_2");
        EXPECT_EQ(installed[1].GetSymbolicName(), "host_test_1");
    }

    test::writeBytes(bundles / "broken.so", "no bundle");
    const auto text = test::messageOf<std::exception>([] { ServiceFramework::installBundles(u"some/\u00E4"); });
    EXPECT_NE(text.find(bundles / "broken.so"), std::string::npos) << text;

    ServiceFramework::setFramework(nullptr);
    EXPECT_TRUE(ServiceFramework::installBundles(u"some/\u00E4").empty());
    ServiceFramework::setFramework(framework);
}

/// The bundles that the probe finds in `bundles` below its prefix, if it is run in `current` with the libraries of the
/// folder `libraries`.
std::string listBundles(const fs::path& bundles, const fs::path& libraries, const fs::path& current = "/") {
    return test::runCommand("cd '" + current.native() + "' && env -u PROJECT_METADATA_PREFIX LD_LIBRARY_PATH='" +
                            libraries.native() + "' " HOST_PROBE " bundles " + bundles.native());
}

TEST(ServiceFramework, BundlesAreFoundInTheTreeOfTheLibrary) {
    const std::string all = "host_test_1 host_test_2 ";
    EXPECT_EQ(listBundles(fs::relative(HOST_TEST_BUNDLES, HOST_PREFIX), HOST_LIBRARIES), all);

    const test::TempFolder folder;
    const fs::path libraryFolder = fs::relative(HOST_LIBRARIES, HOST_PREFIX);
    const auto copyAll = fs::copy_options::recursive | fs::copy_options::copy_symlinks;
    fs::create_directories(folder / "moved" / libraryFolder);
    fs::copy(HOST_LIBRARIES, folder / "moved" / libraryFolder, copyAll);
    fs::create_directory(folder / "moved/bin");
    fs::copy(HOST_TEST_BUNDLES, folder / "moved/bin/plugins");
    EXPECT_EQ(listBundles("bin/plugins", "moved" / libraryFolder, folder.std()), all);

    // A link may lead to the tree, to the single files in it, or from it to the libraries.
    fs::create_directory_symlink("moved", folder / "link");
    EXPECT_EQ(listBundles("bin/plugins", folder / "link" / libraryFolder), all);
    fs::create_directories(folder / "farm" / libraryFolder);
    for (const fs::directory_entry& file : fs::directory_iterator(folder / "moved" / libraryFolder))
        fs::create_symlink(file.path(), folder / "farm" / libraryFolder / file.path().filename());
    EXPECT_EQ(listBundles("bin/plugins", folder / "farm" / libraryFolder), all);
    fs::rename(folder / "moved" / libraryFolder, folder / "elsewhere");
    fs::create_directory_symlink(folder / "elsewhere", folder / "moved" / libraryFolder);
    EXPECT_EQ(listBundles("bin/plugins", folder / "moved" / libraryFolder), all);
}

}  // namespace
