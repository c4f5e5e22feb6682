/// Finding factories of stores. What happens once in a process makes each of these tests a process of its own.
#include "project/metadata/FactoryRegistry.hpp"

#include <algorithm>
#include <future>
#include <thread>

#include "tests/metadata/Helpers.hpp"
#include "tests/metadata/Stores.hpp"

using namespace project::metadata;
using namespace test;
using Factories = std::vector<std::shared_ptr<MetadataManagerFactory>>;

namespace {

Texts namesOf(const Factories& factories) {
    Texts names;
    for (const auto& factory : factories)
        names.push_back(factory ? factory->getName() : u"null");
    return names;
}

std::u16string nameOf(const std::shared_ptr<MetadataManagerFactory>& factory) {
    return factory ? factory->getName() : u"none";
}

/// An installation of the host whose plug-ins are those that a test puts there.
class FactoryRegistryTest : public testing::Test {
protected:
    FactoryRegistryTest() { std::filesystem::create_directories(plugins); }

    void install() { std::filesystem::create_symlink(METADATA_TEST_PLUGIN, plugins / "plugin.so"); }

    std::shared_ptr<MemoryFactory> add(const std::u16string& name, bool isHidden = false) {
        auto factory = std::make_shared<MemoryFactory>(name, isHidden);
        framework.add(factory);
        return factory;
    }

    const TempFolder folder;
    const std::filesystem::path plugins = folder / "bin/tuxa64/ProjectMetadataProvider";
    const EnvironmentVariable prefix{"PROJECT_METADATA_PREFIX", folder.std().native()};
    const SettingsOverride noSettings{nullptr};
    RunningFramework framework;
};

}  // namespace

TEST_F(FactoryRegistryTest, listsAllFactoriesInTheOrderOfTheFramework) {
    const Factories added{add(u"A"), add(u"B", true), add(u"A"), add(u"C")};
    cppmicroservices::BundleContext context = framework.context();
    Factories expected;
    for (const auto& reference : context.GetServiceReferences<MetadataManagerFactory>())
        expected.push_back(context.GetService(reference));
    ASSERT_TRUE(std::is_permutation(expected.begin(), expected.end(), added.begin(), added.end()));

    EXPECT_EQ(getRegisteredFactories(), expected);
    EXPECT_EQ(getNamedFactory(u"A"), *std::find_if(expected.begin(), expected.end(),
                                                   [](const auto& factory) { return factory->getName() == u"A"; }));
    EXPECT_EQ(getNamedFactory(u"B"), added[1]) << "hidden ones are found by name";
    EXPECT_TRUE(getNamedFactory(u"B")->isHidden());
    for (const char16_t* name : {u"a", u"", u"AA", u" A"})
        EXPECT_EQ(getNamedFactory(name), nullptr);
}

TEST_F(FactoryRegistryTest, aFactoryIsListedAsLongAsItIsRegistered) {
    auto registration = framework.add(std::make_shared<MemoryFactory>(u"A"));
    add(u"B");
    const std::shared_ptr<MetadataManagerFactory> held = getNamedFactory(u"A");
    registration.Unregister();
    EXPECT_EQ(namesOf(getRegisteredFactories()), Texts{u"B"});
    EXPECT_EQ(nameOf(held), u"A") << "whoever holds a factory keeps it";

    framework.stop();
    try {
        getRegisteredFactories();
        ADD_FAILURE() << "the framework has stopped";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "The bundle context is no longer valid");
    }
}

TEST_F(FactoryRegistryTest, factoriesThatComeAndGoAreListedOrNot) {
    add(u"stays");
    const std::future<void> changing = std::async(std::launch::async, [&] {
        for (int i = 0; i < 500; ++i) {
            std::vector<RunningFramework::Registration> registrations;
            for (int j = 0; j < 20; ++j)
                registrations.push_back(framework.add(std::make_shared<MemoryFactory>(u"comes and goes")));
            for (RunningFramework::Registration& registration : registrations)
                registration.Unregister();
        }
    });
    while (changing.wait_for(std::chrono::seconds(0)) != std::future_status::ready) {
        Texts names = namesOf(getRegisteredFactories());
        names.erase(std::remove(names.begin(), names.end(), u"comes and goes"), names.end());
        ASSERT_EQ(names, Texts{u"stays"});
    }
}

TEST_F(FactoryRegistryTest, theDefaultIsTheOneInTheSettingsOrFixedPath) {
    const auto defaultWith = [](const std::u16string& setting) {
        const SettingsOverride settings(
            MemorySettings::Values{{{"korvex.project.creation", "DefaultMetadataManager"}, setting}});
        return nameOf(getDefaultFactory());
    };

    add(u"A");
    EXPECT_EQ(defaultWith(u"A"), u"A");
    EXPECT_EQ(defaultWith(u"B"), u"none");
    EXPECT_EQ(nameOf(getDefaultFactory()), u"none");

    add(u"fixedPath");
    EXPECT_EQ(defaultWith(u"A"), u"A");
    EXPECT_EQ(defaultWith(u"B"), u"fixedPath");
    EXPECT_EQ(defaultWith(u"a"), u"fixedPath");
    EXPECT_EQ(defaultWith(u""), u"fixedPath");
    EXPECT_EQ(nameOf(getDefaultFactory()), u"fixedPath");

    const SettingsOverride noSuchKey{MemorySettings::Values{}};
    EXPECT_THROW(getDefaultFactory(), std::out_of_range);
}

TEST_F(FactoryRegistryTest, theFirstFactoryThatCanManageAProjectMakesItsStore) {
    const host::Path root(u"/some/project");
    Texts asked;
    for (const char16_t* name : {u"A", u"B", u"C"}) {
        const auto factory = add(name);
        factory->manages = [&asked, &root, name](const host::Path& path) {
            asked.push_back(name);
            return path == root && name != asked.front();
        };
        factory->create = [&asked, &root, name](const host::Path& path) {
            asked.push_back(std::u16string(u"create ") + name);
            EXPECT_EQ(path, root);
            return std::make_unique<MemoryStore>([](const std::u16string& /*call*/) {});
        };
    }
    const Texts order = namesOf(getRegisteredFactories());
    EXPECT_NE(getMetadataManagerFor(root), nullptr);
    EXPECT_EQ(asked, (Texts{order[0], order[1], u"create " + order[1]}));

    asked.clear();
    EXPECT_EQ(getMetadataManagerFor(u"/other"), nullptr);
    EXPECT_EQ(asked, order);

    const auto failing = std::static_pointer_cast<MemoryFactory>(getNamedFactory(order[1]));
    failing->manages = [](const host::Path& /*path*/) -> bool { throw std::out_of_range("failing on purpose"); };
    asked.clear();
    EXPECT_THROW(getMetadataManagerFor(root), std::out_of_range);
    EXPECT_EQ(asked, Texts{order[0]});
}

TEST_F(FactoryRegistryTest, pluginsAreLoadedOnceForAllThreadsAtOnce) {
    install();
    const EnvironmentVariable slow("METADATA_TEST_PLUGIN", "slow");
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i)
        threads.emplace_back([] { EXPECT_EQ(namesOf(getRegisteredFactories()), Texts{u"plugin"}); });
    for (std::thread& thread : threads)
        thread.join();

    writeBytes(plugins / "text.so", "installed later, and no plug-in");
    EXPECT_EQ(namesOf(getRegisteredFactories()), Texts{u"plugin"}) << "loaded once";
}

TEST_F(FactoryRegistryTest, aLoadingThatFailedIsTriedAgain) {
    install();
    writeBytes(plugins / "text.so", "no plug-in");
    try {
        getRegisteredFactories();
        ADD_FAILURE() << "a plug-in cannot be loaded";
    } catch (const std::exception& error) {
        EXPECT_THAT(error.what(), testing::HasSubstr((plugins / "text.so").native()));
    }
    std::filesystem::remove(plugins / "text.so");
    {
        const EnvironmentVariable failing("METADATA_TEST_PLUGIN", "failing");
        EXPECT_THROW(getNamedFactory(u"plugin"), std::exception);
        EXPECT_THROW(getDefaultFactory(), std::exception);
    }
    EXPECT_EQ(namesOf(getRegisteredFactories()), Texts{u"plugin"});
}

TEST_F(FactoryRegistryTest, withoutAFrameworkThereIsNothingUntilOneComes) {
    install();
    host::ServiceFramework::setFramework(nullptr);
    EXPECT_EQ(getRegisteredFactories(), Factories{});
    EXPECT_EQ(getNamedFactory(u"plugin"), nullptr);
    EXPECT_EQ(getDefaultFactory(), nullptr);
    EXPECT_EQ(getMetadataManagerFor(folder.path()), nullptr);

    const RunningFramework late;
    EXPECT_EQ(namesOf(getRegisteredFactories()), Texts{u"plugin"});
}

TEST(InstalledPluginsTest, areFoundInTheInstallationOfTheLibrary) {
    const RunningFramework framework;
    const SettingsOverride noSettings(nullptr);
    EXPECT_EQ(sorted(namesOf(getRegisteredFactories())), (Texts{u"fixedPath", u"monolithic"}));
    EXPECT_EQ(nameOf(getDefaultFactory()), u"fixedPath");
}
