/// The settings file: what it may hold, and what becomes of one that cannot be read.
#include "host/SettingsService.hpp"

#include "tests/host/Helpers.hpp"
#include "tests/support/Settings.hpp"
#include "tests/support/UnprivilegedUser.hpp"

using host::SettingsService;
using test::writeBytes;

namespace {

std::u16string read(const std::string& key, const std::string& group = "korvex.project.creation") {
    return SettingsService::getSettingsRoot()->getGroup(group)->getText(key, "");
}

class Settings : public testing::Test {
protected:
    const test::TempFolder folder;
    const std::filesystem::path file = folder / "project-metadata/settings.ini";
    const test::ScopedVariable noFile{"PROJECT_METADATA_SETTINGS", ""};
    const test::ScopedVariable configuration{"XDG_CONFIG_HOME", folder.std()};
};

TEST_F(Settings, TheFileOverridesTheDefaults) {
    EXPECT_EQ(read("DefaultMetadataRoot"), u"resources/project");
    EXPECT_EQ(read("MakeReadOnlyMetadataWritable", "korvex.project.metadata"), u"no");
    writeBytes(file,
               "\xEF\xBB\xBF; first\r\n[korvex.project.creation]\r\nDefaultMetadataRoot =  \xC3\xA4/a=b ; c \r\n");
    EXPECT_EQ(read("DefaultMetadataRoot"), u"\u00E4/a=b ; c");
    EXPECT_EQ(read("DefaultMetadataManager"), u"fixedPath");
    EXPECT_EQ(test::messageOf<std::exception>([] { read("key", "a"); }),
              "There is no settings group \"a\" in the settings file \"" + file.native() + '"');
    const test::ScopedVariable other("PROJECT_METADATA_SETTINGS", folder / "other.ini");
    EXPECT_EQ(read("DefaultMetadataRoot"), u"resources/project");
}

TEST_F(Settings, AFileThatCannotBeReadIsReportedWithTheLineOrTheCause) {
    const auto expectFailure = [&](const std::string& rest) {
        const std::string message = test::messageOf<std::exception>([] { read("DefaultMetadataRoot"); });
        EXPECT_EQ(message.find("Cannot read the settings file \"" + file.native() + '"' + rest), 0U) << message;
    };
    const std::pair<const char*, const char*> cases[] = {{"[a]\nx = 1\nno equals sign\n", ", line 3: "},
                                                         {"\n[unclosed\n", ", line 2: "},
                                                         {"[a]\nx = 1\nx = 2\n", ", line 3: "},
                                                         {"[a]\nx = \xE4\n", ", line 2: it is not UTF-8"},
                                                         {"x = 1\n", ": \"x\" stands above all sections"}};
    for (const auto& [content, rest] : cases) {
        writeBytes(file, content);
        expectFailure(rest);
    }
    std::filesystem::permissions(file, std::filesystem::perms::none);
    const test::UnprivilegedUser user;
    expectFailure(": Permission denied");
}

TEST_F(Settings, TheRootCanBeReplacedAndTakenAway) {
    {
        const test::SettingsOverride settings({{{"korvex.project.creation", "DefaultMetadataRoot"}, u"mine"}});
        EXPECT_EQ(read("DefaultMetadataRoot"), u"mine");
        const test::SettingsOverride none(std::shared_ptr<const host::SettingsGroup>{});
        EXPECT_EQ(SettingsService::getSettingsRoot(), nullptr);
    }
    EXPECT_EQ(read("DefaultMetadataRoot"), u"resources/project");
}

}  // namespace
