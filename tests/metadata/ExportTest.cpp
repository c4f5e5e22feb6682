/// Exporting a project into one file, through stores that are found as services.
#include "project/metadata/SingleFileExport.hpp"

#include "project/metadata/FactoryRegistry.hpp"
#include "tests/metadata/Helpers.hpp"
#include "tests/metadata/Stores.hpp"

using namespace project::metadata;
using namespace test;

namespace {

/// A project in a store in memory, and a "monolithic" store that writes its file when it gets the paths. Every call
/// of a store or a factory is noted; the one called `failing` throws.
class ExportTest : public testing::Test {
protected:
    ExportTest() {
        std::filesystem::create_directory(temporary);
        writeBytes(toStd(from) / "file", "");
        source->manages = [this](const host::Path& root) {
            note(u"source canManage");
            return root == from;
        };
        source->create = [this](const host::Path& root) {
            note(u"source createManager");
            EXPECT_EQ(root, from);
            return std::make_unique<MemoryStore>([this](const std::u16string& call) { note(u"source " + call); },
                                                 std::vector<MemoryStore::Entry>{{{}, u"", {path({u"A"})}}});
        };
        monolithic->create = [this](const host::Path& root) {
            scratch = toStd(root);
            note(u"monolithic createManager");
            EXPECT_TRUE(std::filesystem::is_empty(scratch));
            EXPECT_EQ(scratch.parent_path(), temporary);
            return std::make_unique<MemoryStore>([this](const std::u16string& call) { noteDestination(call); });
        };
    }

    void note(const std::u16string& call) {
        calls.push_back(call);
        if (call == failing)
            throw std::out_of_range("failing on purpose");
    }

    void noteDestination(const std::u16string& call) {
        EXPECT_TRUE(exists(scratch)) << "the scratch folder outlives the store";
        note(u"monolithic " + call);
        if (call == u"setPaths" && writesFile)
            writeBytes(scratch / "resources/project/Project.xml", "the file");
    }

    void addStores() {
        framework.add(source);
        framework.add(monolithic);
    }

    void exportProject() { writeMetadataToSingleFile(from, to); }

    const TempFolder folder;
    const std::filesystem::path temporary = folder / "temporary";
    const EnvironmentVariable temporaryFolder{"TMPDIR", temporary.native()};
    const EnvironmentVariable prefix{"PROJECT_METADATA_PREFIX", folder.std().native()};
    const host::Path from = folder.path() / u"project";
    const SettingsOverride noSettings{nullptr};
    host::Path to = folder.path() / u"export.xml";
    std::filesystem::path scratch;
    std::u16string failing;
    bool writesFile = true;
    Texts calls;
    const std::shared_ptr<MemoryFactory> source = std::make_shared<MemoryFactory>(u"source");
    const std::shared_ptr<MemoryFactory> monolithic = std::make_shared<MemoryFactory>(u"monolithic", true);
    RunningFramework framework;
};

}  // namespace

TEST_F(ExportTest, copiesTheTreeIntoAScratchStoreAndItsFileToTheTarget) {
    addStores();
    exportProject();
    EXPECT_EQ(readBytes(toStd(to)), "the file");
    EXPECT_EQ(calls,
              (Texts{u"monolithic createManager", u"source canManage", u"source createManager", u"source hasNode ",
                     u"source getChildren ", u"source hasNode t:A", u"source getChildren t:A", u"monolithic setNodes",
                     u"monolithic setPaths", u"source destroyed", u"monolithic destroyed"}));
    EXPECT_TRUE(is_empty(temporary));
}

TEST_F(ExportTest, anErrorOfAStorePassesOnAndLeavesNothingBehind) {
    addStores();
    for (const char16_t* call : {u"monolithic createManager", u"source canManage", u"source createManager",
                                 u"source hasNode t:A", u"monolithic setNodes", u"monolithic setPaths"}) {
        failing = call;
        EXPECT_THROW(exportProject(), std::out_of_range);
        EXPECT_FALSE(exists(toStd(to)));
        EXPECT_FALSE(exists(scratch));
        EXPECT_TRUE(is_empty(temporary));
    }
}

TEST_F(ExportTest, aFileThatCannotBeCopiedIsAnErrorThatLeavesTheTargetAlone) {
    addStores();
    writeBytes(folder / "there.xml", "before");
    for (const char16_t* target : {u"there.xml", u"project", u"not/there.xml", u"project/file/below.xml"}) {
        to = folder.path() / target;
        EXPECT_THROW(exportProject(), host::FileSystemException);
        EXPECT_TRUE(is_empty(temporary));
    }
    EXPECT_EQ(readBytes(folder / "there.xml"), "before");
    EXPECT_FALSE(exists(folder / "not"));

    to = folder.path() / u"export.xml";
    writesFile = false;
    EXPECT_THROW(exportProject(), host::FileSystemException);
    EXPECT_FALSE(exists(toStd(to)));
    EXPECT_TRUE(is_empty(temporary));
}

TEST_F(ExportTest, withoutAStoreForEitherSideAnErrorNamesThePath) {
    EXPECT_EQ(raised<MetadataWriteFailure>([&] { exportProject(); }).front(), to.text()) << "no stores at all";
    auto registration = framework.add(source);
    EXPECT_EQ(raised<MetadataWriteFailure>([&] { exportProject(); }).front(), to.text()) << "no monolithic store";
    registration.Unregister();

    framework.add(monolithic);
    EXPECT_EQ(raised<MetadataReadFailure>([&] { exportProject(); }).front(), from.text()) << "none for the project";
    framework.add(source);
    source->create = [](const host::Path& /*root*/) { return nullptr; };
    EXPECT_EQ(raised<MetadataReadFailure>([&] { exportProject(); }).front(), from.text()) << "a factory without stores";
    source->manages = [](const host::Path& /*root*/) -> bool { throw std::out_of_range("not to be asked"); };
    monolithic->create = [](const host::Path& /*root*/) { return nullptr; };
    EXPECT_EQ(raised<MetadataWriteFailure>([&] { exportProject(); }).front(), to.text()) << "a factory without stores";

    EXPECT_FALSE(exists(toStd(to)));
    EXPECT_TRUE(is_empty(temporary));
}

TEST_F(ExportTest, withoutATemporaryFolderNothingIsAsked) {
    addStores();
    std::filesystem::remove(temporary);
    EXPECT_THROW(exportProject(), host::FileSystemException);
    EXPECT_EQ(calls, Texts{});
}

TEST(ExportOfPluginsTest, worksWhicheverMetadataFolderTheUserPrefers) {
    const TempFolder folder;
    RunningFramework framework;
    for (const char16_t* metadataFolder : {u"resources/project", u".TolvaneProject"}) {
        const SettingsOverride settings({{{"korvex.project.creation", "DefaultMetadataRoot"}, metadataFolder},
                                         {{"korvex.project.metadata", "MakeReadOnlyMetadataWritable"}, u"no"}});
        const host::Path project = folder.path() / u"project" / metadataFolder;
        const host::Path exported = folder.path() / u"exported" / metadataFolder;

        MetadataNodeSpecification node(u"Node");
        node.put(u"key", u"value");
        const auto factory = getNamedFactory(u"fixedPath");
        ASSERT_TRUE(factory);
        factory->createManager(project)->setNode(path({u"A", u"B"}), node);
        std::filesystem::create_directories(toStd(exported / metadataFolder));
        writeMetadataToSingleFile(project, exported / metadataFolder / u"Project.xml");

        const auto store = getMetadataManagerFor(exported);
        ASSERT_TRUE(store) << "the exported file says what it is";
        EXPECT_EQ(textsOf(store->getChildren({})), Texts{u"t:A"});
        EXPECT_EQ(render(*store->getNode(path({u"A", u"B"}))), u"Node{key=value}");
    }
}
