/// Exporting a project into one file, through stores that are found as services.
#include "project/metadata/SingleFileExport.hpp"

#include "project/metadata/FactoryRegistry.hpp"
#include "project/metadata/MetadataNodeSpecification.hpp"
#include "tests/metadata/Plugins.hpp"

using namespace project::metadata;
using namespace test;

namespace {

/// A factory whose stores cannot be opened, but for one that it was given.
struct ClosedFactory : MetadataManagerFactory {
    ClosedFactory(std::u16string factoryName, std::unique_ptr<MetadataManager> oneStore)
        : name(std::move(factoryName)), store(std::move(oneStore)) {}

    std::unique_ptr<MetadataManager> createManager(const host::Path& /*root*/) override { return std::move(store); }
    bool canManage(const host::Path& /*root*/) override { return true; }
    std::u16string getName() override { return name; }
    std::u16string getDescription() override { return u"for tests"; }

    std::u16string name;
    std::unique_ptr<MetadataManager> store;
};

class ExportTest : public InstallationTest {
protected:
    ExportTest() {
        std::filesystem::create_directory(temporary);
        setenv("TMPDIR", temporary.c_str(), 1);
        install(FIXED_PATH_PLUGIN);
        writeBytes(toStd(to), "before");
    }
    ~ExportTest() override {
        EXPECT_TRUE(is_empty(temporary)) << "the scratch folder is left";
        unsetenv("TMPDIR");
    }

    void addClosed(const std::u16string& name, std::unique_ptr<MetadataManager> store = nullptr) const {
        framework->GetBundleContext().RegisterService<MetadataManagerFactory>(
            std::make_shared<ClosedFactory>(name, std::move(store)));
    }

    void makeProject() const {
        getNamedFactory(u"fixedPath")->createManager(from)->setNode(path, MetadataNodeSpecification(u"Node"));
    }

    const std::filesystem::path temporary = folder / "temporary";
    const host::Path from = folder.path() / u"project";
    const host::Path to = folder.path() / u"export.xml";
    const MetadataPath path = MetadataPathBuilder().add(u"t", u"A").add(u"t", u"B").build();
};

}  // namespace

TEST_F(ExportTest, theFileIsAStoreOfItsOwnWhicheverMetadataFolderTheUserPrefers) {
    install(MONOLITHIC_PLUGIN);
    const SettingsOverride settings({{{"korvex.project.creation", "DefaultMetadataRoot"}, u".TolvaneProject"},
                                     {{"korvex.project.metadata", "MakeReadOnlyMetadataWritable"}, u"no"}});
    makeProject();
    std::filesystem::create_directories(folder / "exported/.TolvaneProject");
    writeMetadataToSingleFile(from, folder.path() / u"exported/.TolvaneProject/Project.xml");
    const auto store = getMetadataManagerFor(folder.path() / u"exported");
    ASSERT_TRUE(store) << "the exported file says what it is";
    EXPECT_EQ(store->getChildren({}), std::vector{path.getParent()});
    EXPECT_EQ(store->getNode(path)->getName(), u"Node");

    EXPECT_THROW(writeMetadataToSingleFile(from, to), host::FileSystemException);
    EXPECT_EQ(readBytes(toStd(to)), "before") << "what exists is not replaced";
}

TEST_F(ExportTest, theUsersSettingsDoNotChangeAByte) {
    install(MONOLITHIC_PLUGIN);
    const auto exported = [&](const MemorySettings::Values& values) {
        const SettingsOverride settings(values);
        std::filesystem::remove(toStd(to));
        writeMetadataToSingleFile(from, to);
        return readBytes(toStd(to));
    };
    const auto rootSetting = [](const char16_t* value) {
        return MemorySettings::Values{{{"korvex.project.creation", "DefaultMetadataRoot"}, value}};
    };
    const std::unique_ptr<MetadataManager> project = getNamedFactory(u"fixedPath")->createManager(from);
    project->setPaths({MetadataPath()});
    for (const std::string expected : {"<Project MetadataType=\"monolithic\"/>", "<Node/>"}) {
        const std::string bytes = exported(rootSetting(u"resources/project"));
        EXPECT_THAT(bytes, testing::HasSubstr(expected));
        EXPECT_EQ(exported(rootSetting(u"_TolvaneProject")), bytes);
        EXPECT_EQ(exported({}), bytes) << "settings that cannot be read are not needed";
        project->setNode(path, MetadataNodeSpecification(u"Node"));
    }
}

TEST_F(ExportTest, withoutAMonolithicStoreThatWritesItsFileTheTargetIsLeftAlone) {
    makeProject();
    for (cppmicroservices::Bundle& bundle : framework->GetBundleContext().GetBundles()) {
        if (bundle.GetSymbolicName() == "project_metadata_monolithic")
            bundle.Stop();
    }
    EXPECT_EQ(raised<MetadataWriteFailure>([&] { writeMetadataToSingleFile(from, to); }),
              (Texts{to.text(), u"there is no metadata store named \"monolithic\""}));
    addClosed(u"monolithic", getNamedFactory(u"fixedPath")->createManager(folder.path() / u"elsewhere"));
    EXPECT_EQ(raised<MetadataWriteFailure>([&] { writeMetadataToSingleFile(from, to); }),
              (Texts{to.text(), u"the metadata store named \"monolithic\" has not written its file"}));
    EXPECT_EQ(raised<MetadataWriteFailure>([&] { writeMetadataToSingleFile(from, to); }),
              (Texts{to.text(), u"the metadata store named \"monolithic\" could not be opened"}));
    EXPECT_EQ(readBytes(toStd(to)), "before");
}

TEST_F(ExportTest, aProjectThatCannotBeReadLeavesTheTargetAlone) {
    install(MONOLITHIC_PLUGIN);
    EXPECT_EQ(raised<MetadataReadFailure>([&] { writeMetadataToSingleFile(from, to); }),
              (Texts{from.text(), u"no metadata store recognises the project in this folder"}));
    addClosed(u"other");
    EXPECT_EQ(
        raised<MetadataReadFailure>([&] { writeMetadataToSingleFile(from, to); }),
        (Texts{from.text(), u"the metadata store named \"other\" recognises the project, but could not be opened"}));
    const host::Path coreFile = from / u"resources/project/Project.xml";
    writeBytes(toStd(coreFile), "no XML");
    EXPECT_EQ(raised<MetadataReadFailure>([&] { writeMetadataToSingleFile(from, to); }),
              (Texts{coreFile.text(), u"it is no well-formed XML"}));
    EXPECT_EQ(readBytes(toStd(to)), "before");
}
