/// Where metadata lives: the known folders, the one that the user prefers, and the core file.
#include <optional>

#include "project/metadata/CoreMetadataHandler.hpp"
#include "project/metadata/MetadataRoots.hpp"
#include "project/metadata/ProjectMetadataLocation.hpp"
#include "tests/metadata/Helpers.hpp"

using namespace project::metadata;
using namespace test;

namespace {

MemorySettings::Values defaultRoot(const std::u16string& name) {
    return {{{"korvex.project.creation", "DefaultMetadataRoot"}, name}};
}

class LocationTest : public testing::Test {
protected:
    /// Writes a core file into the metadata folder `name`.
    host::Path makeCoreFile(const std::u16string& name, const std::string& bytes = "<Info/>") const {
        const host::Path file = folder.path() / name / u"Project.xml";
        writeBytes(toStd(file), bytes);
        return file;
    }

    const TempFolder folder;
    const ProjectMetadataLocation location{folder.path()};
    const SettingsOverride noSettings{nullptr};
};

class CoreFileTest : public testing::Test {
protected:
    const TempFolder folder;
    const CoreMetadataHandler handler{folder.path() / u"metadata", u"fixedPath", u"Root"};
    const std::filesystem::path file = folder / "metadata/Project.xml";
    const std::string declaration = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
    const std::string ours = declaration + "<Root MetadataType=\"fixedPath\"/>";
};

}  // namespace

TEST_F(LocationTest, theKnownFolders) {
    EXPECT_EQ(getSelectableRoots(), (Texts{u"resources/project", u".TolvaneProject", u"_TolvaneProject"}));
    EXPECT_EQ(getSupportedRoots(), (Texts{u"resources/project", u".TolvaneProject", u"_TolvaneProject",
                                          u"resources/.Project", u"resources/_Project"}));
    EXPECT_EQ(&getSelectableRoots(), &getSelectableRoots());
    EXPECT_EQ(&getSupportedRoots(), &getSupportedRoots());
}

TEST_F(LocationTest, newProjectsGetTheFolderInTheSettings) {
    EXPECT_EQ(getRootFromSettings(), u"resources/project");
    for (const char16_t* name : {u".TolvaneProject", u"some/other ", u""}) {
        const SettingsOverride settings(defaultRoot(name));
        EXPECT_EQ(getRootFromSettings(), name);
        EXPECT_EQ(location.getDirectory(), folder.path() / name);
        EXPECT_EQ(location.getCoreFile(), folder.path() / name / u"Project.xml");
        EXPECT_FALSE(location.hasCoreFile());
    }
    const SettingsOverride noSuchKey{MemorySettings::Values{}};
    EXPECT_THROW(getRootFromSettings(), std::out_of_range);
    EXPECT_THROW(location.getDirectory(), std::out_of_range);
    EXPECT_TRUE(is_empty(folder.std())) << "nothing is made";
}

TEST_F(LocationTest, theFirstKnownFolderWithACoreFileIsInUse) {
    const SettingsOverride settings(defaultRoot(u"preferred"));
    makeCoreFile(u"preferred");
    for (const std::u16string& name : getSupportedRoots())
        makeCoreFile(name);
    for (const std::u16string& name : getSupportedRoots()) {
        const host::Path directory = folder.path() / name;
        EXPECT_TRUE(location.hasCoreFile());
        EXPECT_EQ(location.locateCoreFile(), directory / u"Project.xml");
        EXPECT_EQ(location.getCoreFile(), directory / u"Project.xml");
        EXPECT_EQ(location.getDirectory().text(), directory.text());
        std::filesystem::remove(toStd(directory / u"Project.xml"));
    }
    EXPECT_FALSE(location.hasCoreFile()) << "folders without a core file do not count";
    EXPECT_EQ(location.locateCoreFile(), std::nullopt);
    EXPECT_EQ(location.getMetadataType(), std::nullopt);
    EXPECT_EQ(location.getDirectory(), folder.path() / u"preferred");
}

TEST_F(LocationTest, aFolderThatCannotBeLookedIntoEndsTheSearch) {
    std::filesystem::create_symlink("_TolvaneProject", folder / "_TolvaneProject");
    makeCoreFile(u"resources/.Project");
    const Texts arguments{(folder.path() / u"_TolvaneProject/Project.xml").text(), messageOfNested};
    EXPECT_EQ(raised<MetadataReadFailure>([&] { location.locateCoreFile(); }), arguments);
    EXPECT_EQ(raised<MetadataReadFailure>([&] { location.hasCoreFile(); }), arguments);
    EXPECT_EQ(raised<MetadataReadFailure>([&] { location.getDirectory(); }), arguments);
    EXPECT_EQ(raised<MetadataReadFailure>([&] { location.getMetadataType(); }), arguments);

    const host::Path earlier = makeCoreFile(u".TolvaneProject");
    EXPECT_EQ(location.locateCoreFile(), earlier) << "later folders are not looked into";
}

TEST_F(LocationTest, theTypeIsThatOfTheRootNode) {
    const std::pair<std::string, std::optional<std::u16string>> cases[] = {
        {"<Info MetadataType='fixedPath'/>", u"fixedPath"},
        {"<Any a='b' MetadataType=' x '><c MetadataType='y'/></Any>", u" x "},
        {"<Info MetadataType=''/>", std::nullopt},
        {"<Info><c MetadataType='y'/></Info>", std::nullopt},
    };
    for (const auto& [bytes, type] : cases) {
        makeCoreFile(u"resources/project", bytes);
        EXPECT_EQ(location.getMetadataType(), type) << bytes;
    }
    for (const char* bytes : {"", "no XML", "<Info MetadataType='x'>"}) {
        const host::Path file = makeCoreFile(u"resources/project", bytes);
        EXPECT_TRUE(location.hasCoreFile());
        EXPECT_EQ(raised<MetadataReadFailure>([&] { location.getMetadataType(); }), (Texts{file.text(), u""}));
    }
}

TEST_F(LocationTest, theCoreFileLiesInTheFolderOfADerivedLocation) {
    struct Elsewhere : ProjectMetadataLocation {
        using ProjectMetadataLocation::ProjectMetadataLocation;
        host::Path getDirectory() const override { return u"/else/where"; }
    };
    EXPECT_EQ(Elsewhere(folder.path()).getCoreFile().text(), u"/else/where/Project.xml");
}

TEST_F(CoreFileTest, isWrittenUnlessItNamesTheType) {
    EXPECT_EQ(toStd(handler.getRootMetadataFile()), file);
    for (const char* bytes : {"", "<Root MetadataType='fixedPath2'/>", "<Root MetadataType='fixed'/>",
                              "<Root MetadataType='fixedpath'/>", "<Root MetadataType=''/>", "<Root/>"}) {
        if (*bytes != 0)
            writeBytes(file, bytes);
        EXPECT_FALSE(handler.isCoreMetadataDefined()) << bytes;
        handler.ensureCoreMetadataFileExists();
        EXPECT_EQ(readBytes(file), ours);
        EXPECT_TRUE(handler.isCoreMetadataDefined());
    }
    const std::string kept = "<Other MetadataType='fixedPath' a='b'><c/></Other>";
    writeBytes(file, kept);
    handler.ensureCoreMetadataFileExists();
    EXPECT_EQ(readBytes(file), kept);
    handler.createCoreMetadata();
    EXPECT_EQ(readBytes(file), ours);
}

TEST_F(CoreFileTest, anEmptyTypeIsNeverDefined) {
    const CoreMetadataHandler untyped(folder.path() / u"metadata", u"", u"Root");
    untyped.createCoreMetadata();
    EXPECT_EQ(readBytes(file), declaration + "<Root MetadataType=\"\"/>");
    EXPECT_FALSE(untyped.isCoreMetadataDefined());
}

TEST_F(CoreFileTest, aFailureLeavesTheFileAsItWas) {
    for (const char* bytes : {"", "no XML", "<Root MetadataType='fixedPath'>"}) {
        writeBytes(file, bytes);
        const Texts arguments{toPath(file).text(), u""};
        EXPECT_EQ(raised<MetadataReadFailure>([&] { handler.isCoreMetadataDefined(); }), arguments);
        EXPECT_EQ(raised<MetadataReadFailure>([&] { handler.ensureCoreMetadataFileExists(); }), arguments);
        EXPECT_EQ(readBytes(file), bytes);
    }
    const CoreMetadataHandler invalid(folder.path() / u"metadata", u"\x01", u"Root");
    writeBytes(file, ours);
    EXPECT_EQ(raised<PutMetadataValueFailure>([&] { invalid.ensureCoreMetadataFileExists(); }), Texts{u"\x01"});
    EXPECT_EQ(readBytes(file), ours);
}
