/// UUIDs and their marker files.
#include "project/metadata/Uuid.hpp"

#include "tests/metadata/Helpers.hpp"

using namespace project::metadata;
using namespace test;

TEST(UuidTest, aMarkerFileIsWrittenForEachUuidInTheMetadataFolder) {
    const TempFolder folder;
    const SettingsOverride noSettings(nullptr);
    const host::Path metadata = folder.path() / u"resources/project";
    const host::Path marker = metadata / u"uuid-ä ö.xml";
    EXPECT_EQ(assignUuid(folder.path(), u"ä ö"), marker);
    EXPECT_EQ(readBytes(toStd(marker)), "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<uuid/>\n");
    for (int i = 0; i < 2; ++i)
        EXPECT_THAT(
            assignUuid(folder.path(), u"").fileName().accessName(),
            testing::MatchesRegex("uuid-[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}.xml"));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(toStd(metadata)), {}), 3);
}
