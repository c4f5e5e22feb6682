/// UUIDs and their marker files.
#include "project/metadata/Uuid.hpp"

#include <set>

#include "tests/metadata/Helpers.hpp"

using namespace project::metadata;
using namespace test;

namespace {

class UuidTest : public testing::Test {
protected:
    const TempFolder folder;
    const std::filesystem::path metadata = folder / "resources/project";
    const SettingsOverride noSettings{nullptr};
};

}  // namespace

TEST_F(UuidTest, randomOnesInTheirTextForm) {
    const auto hasTheForm =
        testing::MatchesRegex("[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}");
    std::set<std::u16string> uuids;
    for (int i = 0; i < 500; ++i) {
        const std::u16string uuid = generateUUID();
        EXPECT_THAT(std::string(uuid.begin(), uuid.end()), hasTheForm);
        EXPECT_TRUE(uuids.insert(uuid).second);
    }
}

TEST_F(UuidTest, aMarkerFileIsWrittenForEachUuid) {
    const host::Path first = assignUuid(folder.path(), u"x");
    const host::Path second = assignUuid(folder.path(), u"ä ö");
    const host::Path third = assignUuid(folder.path(), u"");
    EXPECT_EQ(toStd(first), metadata / "uuid-x.xml");
    EXPECT_EQ(toStd(second), metadata / "uuid-ä ö.xml");
    EXPECT_EQ(third.text().size(), toPath(metadata / "uuid-.xml").text().size() + 36);
    for (const host::Path& marker : {first, second, third})
        EXPECT_EQ(readBytes(toStd(marker)), "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<uuid/>\n");
    EXPECT_EQ(assignUuid(folder.path(), u"x"), first) << "the same again is no error";
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(metadata), {}), 3);
}

TEST_F(UuidTest, theMarkerLiesInTheMetadataFolderInUse) {
    writeBytes(folder / "_TolvaneProject/Project.xml", "<Info/>");
    EXPECT_EQ(toStd(assignUuid(folder.path(), u"x")), folder / "_TolvaneProject/uuid-x.xml");
    EXPECT_FALSE(exists(metadata));
}

TEST_F(UuidTest, aFailureNamesTheMarkerFile) {
    const host::Path marker = toPath(metadata / "uuid-x.xml");
    std::filesystem::create_directories(toStd(marker));
    EXPECT_EQ(raised<MetadataWriteFailure>([&] { assignUuid(folder.path(), u"x"); }), (Texts{marker.text(), u""}));
}
