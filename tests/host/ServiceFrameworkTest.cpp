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

TEST(ServiceFramework, BundlesOfAnotherPrefixAndOfTheUserAreAdded) {
    const test::TempFolder folder;
    const fs::path relative = fs::relative(HOST_TEST_BUNDLES, HOST_PREFIX);
    const auto add = [&](const fs::path& prefix, const char* bundle, const char* name) {
        fs::create_directories(folder / prefix / relative);
        fs::copy(fs::path(HOST_TEST_BUNDLES) / bundle, folder / prefix / relative / name);
    };
    // Under the name of one that is installed, and as others that could not be installed beside it.
    add("prefix", "host_test_2.so", "host_test_1.so");
    add("data/project-metadata", "more/host_test_3.so", "host_test_3.so");
    const auto list = [&](const std::string& variables) {
        return test::runCommand("env -u PROJECT_METADATA_PREFIX -u XDG_DATA_HOME -u HOME " + variables +
                                " " HOST_PROBE " bundles " + relative.native());
    };
    const std::string prefix = "PROJECT_METADATA_PREFIX=" + (folder / "prefix").native();
    EXPECT_EQ(list(prefix), "host_test_1 host_test_2 ");
    EXPECT_EQ(list(prefix + " XDG_DATA_HOME=" + (folder / "data").native()), "host_test_1 host_test_2 host_test_3 ");
    fs::create_directories(folder / ".local");
    fs::rename(folder / "data", folder / ".local/share");
    EXPECT_EQ(list("HOME=" + folder.std().native()), "host_test_1 host_test_2 host_test_3 ");
}

TEST(ServiceFramework, NoBundlesAreAWarningThatSaysWhereTheyWereLookedFor) {
    const test::TempFolder folder;
    fs::create_directories(folder / "some/folder");
    const std::string none = HOST_PREFIX "/some/folder";
    EXPECT_EQ(test::runCommand("env -u XDG_DATA_HOME -u HOME PROJECT_METADATA_PREFIX=" + folder.std().native() +
                               " " HOST_PROBE " bundles some/folder 2>&1"),
              "warning: host: There are no plug-ins. They were looked for in \"" + none +
                  "\", which does not exist; \"" + (folder / "some/folder").native() +
                  "\", where no file ends with \".so\"\n");
}

/// The bundles that the probe finds in `bundles` below its prefix, if it is run in `current` with the libraries of the
/// folder `libraries`.
std::string listBundles(const fs::path& bundles, const fs::path& libraries, const fs::path& current = "/") {
    return test::runCommand("cd '" + current.native() +
                            "' && env -u PROJECT_METADATA_PREFIX -u XDG_DATA_HOME -u HOME LD_LIBRARY_PATH='" +
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
