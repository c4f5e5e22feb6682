/// Where metadata lives: the known folders, the one that the user prefers, and the core file.
#include <sys/stat.h>

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

TEST(LocationTest, aCoreFileThatIsNoRegularFileIsNotWaitedForUnlessItLeadsToOne) {
    const TempFolder folder;
    const host::Path path = folder.path() / u"resources/project/Project.xml";
    const std::filesystem::path file = toStd(path);
    const ProjectMetadataLocation location(folder.path());
    const CoreMetadataHandler handler(folder.path() / u"resources/project", u"fixedPath", u"Root");
    writeBytes(folder / "elsewhere.xml", "<Root MetadataType='fixedPath'/>");
    create_directories(file.parent_path());
    create_symlink(folder / "elsewhere.xml", file);
    EXPECT_EQ(location.getMetadataType(), u"fixedPath");
    EXPECT_TRUE(handler.isCoreMetadataDefined());

    const auto expectRefusal = [&](const Texts& arguments) {
        EXPECT_EQ(raised<MetadataReadFailure>([&] { location.getMetadataType(); }), arguments);
        EXPECT_EQ(raised<MetadataReadFailure>([&] { handler.ensureCoreMetadataFileExists(); }), arguments);
        EXPECT_TRUE(location.hasCoreFile()) << "it is there all the same";
    };
    const Texts noFile{path.text(), u"it is no regular file"};
    remove(folder / "elsewhere.xml");
    // Whoever opened it would wait for ever.
    ASSERT_EQ(mkfifo((folder / "elsewhere.xml").c_str(), 0600), 0);
    expectRefusal(noFile);
    EXPECT_EQ(raised<MetadataWriteFailure>([&] { handler.createCoreMetadata(); }), noFile);
    rename(folder / "elsewhere.xml", file);
    expectRefusal(noFile);
    EXPECT_EQ(raised<MetadataWriteFailure>([&] { handler.createCoreMetadata(); }), noFile);
    remove(file);
    create_directories(file);
    expectRefusal({path.text(), u""});
}
