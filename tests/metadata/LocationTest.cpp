/// Where metadata lives: the known folders, the one that the user prefers, and the core file.
#include "project/metadata/CoreMetadataHandler.hpp"
#include "project/metadata/MetadataRoots.hpp"
#include "project/metadata/ProjectMetadataLocation.hpp"
#include "tests/metadata/Helpers.hpp"

using namespace project::metadata;
using namespace test;

TEST(LocationTest, theFirstKnownFolderWithACoreFileIsInUseThenTheOneInTheSettings) {
    const TempFolder folder;
    const ProjectMetadataLocation location(folder.path());
    const SettingsOverride noSettings(nullptr);
    const Texts known{u"resources/project", u".TolvaneProject", u"_TolvaneProject", u"resources/.Project",
                      u"resources/_Project"};
    EXPECT_EQ(getSelectableRoots(), Texts(known.begin(), known.begin() + 3));
    EXPECT_EQ(getSupportedRoots(), known);
    EXPECT_EQ(location.getDirectory(), folder.path() / u"resources/project") << "without settings";

    const SettingsOverride settings(
        MemorySettings::Values{{{"korvex.project.creation", "DefaultMetadataRoot"}, u"preferred"}});
    writeBytes(folder / "preferred/Project.xml", "<Info/>");
    for (const std::u16string& name : known)
        writeBytes(toStd(folder.path() / name / u"Project.xml"), "<Info/>");
    for (const std::u16string& name : known) {
        const host::Path directory = folder.path() / name;
        EXPECT_EQ(location.locateCoreFile(), directory / u"Project.xml");
        EXPECT_EQ(location.getDirectory(), directory);
        std::filesystem::remove(toStd(directory / u"Project.xml"));
    }
    EXPECT_FALSE(location.hasCoreFile()) << "folders without a core file do not count";
    EXPECT_EQ(location.getDirectory(), folder.path() / u"preferred");
}

TEST(LocationTest, theTypeIsWhatTheCoreFileNamesUnlessThatIsEmpty) {
    const TempFolder folder;
    const ProjectMetadataLocation location(folder.path());
    EXPECT_EQ(location.getMetadataType(), std::nullopt);
    for (const auto& [bytes, type] : {std::pair("<P MetadataType='x y'/>", std::optional<std::u16string>(u"x y")),
                                      std::pair("<P MetadataType=''/>", std::optional<std::u16string>())}) {
        writeBytes(folder / "_TolvaneProject/Project.xml", bytes);
        EXPECT_EQ(location.getMetadataType(), type);
    }
}

TEST(LocationTest, theCoreFileIsRewrittenUnlessItNamesTheTypeOrCannotBeRead) {
    const TempFolder folder;
    const CoreMetadataHandler handler(folder.path() / u"metadata", u"fixedPath", u"Root");
    const host::Path path = folder.path() / u"metadata/Project.xml";
    const std::filesystem::path file = toStd(path);
    const std::string ours = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<Root MetadataType=\"fixedPath\"/>";
    handler.ensureCoreMetadataFileExists();
    EXPECT_EQ(readBytes(file), ours);
    for (const char* bytes : {"<Root MetadataType='fixed'/>", "<Root MetadataType='fixedpath'/>", "<Root/>"}) {
        writeBytes(file, bytes);
        handler.ensureCoreMetadataFileExists();
        EXPECT_EQ(readBytes(file), ours) << bytes;
    }
    const std::string kept = "<Other MetadataType='fixedPath' a='b'><c/></Other>";
    writeBytes(file, kept);
    handler.ensureCoreMetadataFileExists();
    EXPECT_EQ(readBytes(file), kept);

    for (const char* bytes : {"", "no XML", "<Root MetadataType='fixedPath'>"}) {
        writeBytes(file, bytes);
        EXPECT_EQ(raised<MetadataReadFailure>([&] { handler.ensureCoreMetadataFileExists(); }),
                  (Texts{path.text(), u""}));
        EXPECT_EQ(readBytes(file), bytes);
    }
}
