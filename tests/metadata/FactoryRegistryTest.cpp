/// Finding factories of stores.
#include "project/metadata/FactoryRegistry.hpp"

#include <algorithm>
#include <stdexcept>
#include <thread>

#include "tests/metadata/Plugins.hpp"

using namespace project::metadata;
using namespace test;
using Factories = std::vector<std::shared_ptr<MetadataManagerFactory>>;

namespace {

/// A factory without stores.
struct EmptyFactory : MetadataManagerFactory {
    explicit EmptyFactory(std::u16string factoryName) : name(std::move(factoryName)) {}

    std::unique_ptr<MetadataManager> createManager(const host::Path& /*root*/) override {
        ++stores;
        return nullptr;
    }
    bool canManage(const host::Path& root) override { return root.text() == name; }
    std::u16string getName() override { return name; }
    std::u16string getDescription() override { return u"for tests"; }
    bool isHidden() const override { return true; }

    std::u16string name;
    int stores = 0;
};

void expectThePluginOnce() {
    const Factories factories = getRegisteredFactories();
    const auto isIt = [](const auto& factory) { return factory->getName() == u"plugin"; };
    EXPECT_EQ(std::count_if(factories.begin(), factories.end(), isIt), 1);
}

class FactoryRegistryTest : public InstallationTest {
protected:
    auto add(const std::u16string& name) {
        auto factory = std::make_shared<EmptyFactory>(name);
        framework->GetBundleContext().RegisterService<MetadataManagerFactory>(factory);
        return factory;
    }
};

}  // namespace

TEST_F(FactoryRegistryTest, listsAllFactoriesAndFindsThemByName) {
    const Factories added{add(u"A"), add(u"B"), add(u"C")};
    EXPECT_THAT(getRegisteredFactories(), testing::IsSupersetOf(added));
    EXPECT_EQ(getNamedFactory(u"B"), added[1]) << "hidden ones too";
}

TEST_F(FactoryRegistryTest, theFirstThatCanManageAProjectIsAskedForItsStore) {
    const auto other = add(u"B");
    const auto first = add(u"A");
    const auto second = add(u"A");
    EXPECT_EQ(getMetadataManagerFor(u"A"), nullptr) << "what it makes is returned as it is";
    EXPECT_EQ(first->stores, 1);
    EXPECT_EQ(other->stores + second->stores, 0);
    EXPECT_EQ(getMetadataManagerFor(u"C"), nullptr);
    EXPECT_EQ(getNamedFactory(u"C"), nullptr);
}

TEST_F(FactoryRegistryTest, aFrameworkMayComeLate) {
    install(METADATA_TEST_PLUGIN);
    host::ServiceFramework::setFramework(nullptr);
    EXPECT_EQ(getRegisteredFactories(), Factories());
    EXPECT_EQ(getDefaultFactory(), nullptr);
    EXPECT_EQ(getMetadataManagerFor(folder.path()), nullptr);
    host::ServiceFramework::setFramework(framework);
    expectThePluginOnce();
}

TEST_F(FactoryRegistryTest, theDefaultIsTheOneInTheSettingsOrFixedPath) {
    const Factories added{add(u"fixedPath"), add(u"B")};
    EXPECT_EQ(getDefaultFactory(), added[0]) << "without settings";
    for (const auto& [setting, expected] : {std::pair(u"B", added[1]), std::pair(u"C", added[0])}) {
        const SettingsOverride settings({{{"korvex.project.creation", "DefaultMetadataManager"}, setting},
                                         {{"korvex.project.metadata", "MakeReadOnlyMetadataWritable"}, u"no"}});
        EXPECT_EQ(getDefaultFactory(), expected);
    }
}

TEST_F(FactoryRegistryTest, pluginsAreLoadedOnceForAllThreadsAtOnce) {
    install(METADATA_TEST_PLUGIN);
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i)
        threads.emplace_back(expectThePluginOnce);
    for (std::thread& thread : threads)
        thread.join();
    writeBytes(plugins / "text.so", "installed later, and no plug-in");
    expectThePluginOnce();
}

TEST_F(FactoryRegistryTest, aLoadingThatFailedIsTriedAgain) {
    install(METADATA_TEST_PLUGIN);
    const std::filesystem::path noPlugin = plugins / "text.so";
    writeBytes(noPlugin, "no plug-in");
    EXPECT_THAT([] { getRegisteredFactories(); },
                testing::ThrowsMessage<std::exception>(testing::HasSubstr(noPlugin.native())));
    std::filesystem::remove(noPlugin);
    setenv("METADATA_TEST_PLUGIN", "failing", 1);
    EXPECT_THROW(getNamedFactory(u"plugin"), std::runtime_error);
    unsetenv("METADATA_TEST_PLUGIN");
    expectThePluginOnce();
}
