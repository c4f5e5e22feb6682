/// The framework of the process, and where its bundles come from.
#include "host/ServiceFramework.hpp"

#include "tests/host/Helpers.hpp"

#include <cppmicroservices/Framework.h>

namespace fs = std::filesystem;
using host::ServiceFramework;

namespace {

/// The folder of the bundles, as the host is asked for it, and where the host looks for that below a prefix.
const std::string relative = "host_test";
const fs::path belowPrefix = HOST_PLUGINS_BELOW_PREFIX;

TEST(ServiceFramework, BundlesAreInstalledOnceInTheOrderOfTheirNames) {
    const test::TempFolder folder;
    const fs::path bundles = folder / HOST_PLUGINS_BELOW_PREFIX / "some/\xC3\xA4";
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
    const auto add = [&](const fs::path& place, const char* bundle, const char* name) {
        fs::create_directories(folder / place / relative);
        fs::copy(fs::path(HOST_TEST_BUNDLES) / bundle, folder / place / relative / name);
    };
    // Under the name of one that is installed, and as others that could not be installed beside it.
    add("prefix" / belowPrefix, "host_test_2.so", "host_test_1.so");
    add("data/project-metadata", "more/host_test_3.so", "host_test_3.so");
    const auto list = [&](const std::string& variables) {
        return test::runCommand("env -u PROJECT_METADATA_PREFIX -u XDG_DATA_HOME -u HOME " + variables +
                                " " HOST_PROBE " bundles " + relative);
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
    const fs::path empty = folder / belowPrefix / "some/folder";
    fs::create_directories(empty);
    const std::string none = HOST_LIBRARIES "/" HOST_PLUGINS_BELOW_LIBRARIES "/some/folder";
    EXPECT_EQ(test::runCommand("env -u XDG_DATA_HOME -u HOME PROJECT_METADATA_PREFIX=" + folder.std().native() +
                               " " HOST_PROBE " bundles some/folder 2>&1"),
              "warning: host: There are no plug-ins. They were looked for in \"" + none +
                  "\", which does not exist; \"" + empty.native() + "\", where no file ends with \".so\"\n");
}

/// The bundles that the probe finds if it is run in `current` with the libraries of the folder `libraries`.
std::string listBundles(const fs::path& libraries, const fs::path& current = "/") {
    return test::runCommand("cd '" + current.native() +
                            "' && env -u PROJECT_METADATA_PREFIX -u XDG_DATA_HOME -u HOME LD_LIBRARY_PATH='" +
                            libraries.native() + "' " HOST_PROBE " bundles " + relative);
}

TEST(ServiceFramework, BundlesAreFoundBesideTheLibrary) {
    const std::string all = "host_test_1 host_test_2 ";
    EXPECT_EQ(listBundles(HOST_LIBRARIES), all);

    const test::TempFolder folder;
    const fs::path moved = folder / "moved/lib";
    const fs::path movedPlugins = moved / HOST_PLUGINS_BELOW_LIBRARIES;
    fs::create_directories(movedPlugins);
    fs::copy(HOST_TEST_BUNDLES, movedPlugins / relative);
    for (const fs::directory_entry& file : fs::directory_iterator(HOST_LIBRARIES)) {
        if (!file.is_directory())
            fs::copy(file.path(), moved / file.path().filename(), fs::copy_options::copy_symlinks);
    }
    EXPECT_EQ(listBundles("moved/lib", folder.std()), all);

    // A link may lead to the folder, or to the single files in it.
    fs::create_directory_symlink("moved", folder / "link");
    EXPECT_EQ(listBundles(folder / "link/lib"), all);
    fs::create_directory(folder / "farm");
    for (const fs::directory_entry& file : fs::directory_iterator(moved)) {
        if (!file.is_directory())
            fs::create_symlink(file.path(), folder / "farm" / file.path().filename());
    }
    EXPECT_EQ(listBundles(folder / "farm"), all);
    // Plug-ins beside the link go before those beside the file behind it.
    fs::create_directories(folder / "farm" / HOST_PLUGINS_BELOW_LIBRARIES / relative);
    fs::copy(fs::path(HOST_TEST_BUNDLES) / "host_test_2.so", folder / "farm" / HOST_PLUGINS_BELOW_LIBRARIES / relative);
    EXPECT_EQ(listBundles(folder / "farm"), "host_test_2 ");
}

}  // namespace
