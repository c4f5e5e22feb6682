/// The settings file: where it is, what it may hold, and what becomes of one that cannot be read.
#include "host/SettingsService.hpp"

#include "host/MessageException.hpp"
#include "host/Text.hpp"
#include "tests/host/Helpers.hpp"
#include "tests/support/Settings.hpp"
#include "tests/support/TempFolder.hpp"
#include "tests/support/UnprivilegedUser.hpp"

#include <gtest/gtest.h>

#include <exception>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace fs = std::filesystem;
using host::SettingsService;
using test::ScopedVariable;
using test::TempFolder;
using test::writeBytes;

namespace {

const std::string creation = "korvex.project.creation";

std::u16string read(const std::string& group, const std::string& key) {
    return SettingsService::getSettingsRoot()->getGroup(group)->getText(key, "");
}

std::u16string readRoot() {
    return read(creation, "DefaultMetadataRoot");
}

/// What a settings file says that sets `value`.
std::string contentFor(const std::string& value) {
    return "[korvex.project.creation]\nDefaultMetadataRoot = " + value + "\n";
}

/// A settings file that the environment names.
class SettingsFile : public testing::Test {
protected:
    void write(const std::string& content) const { writeBytes(file, content); }

    /// The text of the error that asking for a group meets, once as a `std::exception` and once for the user.
    static std::string failure(const std::string& group = creation) {
        const auto ask = [&] { SettingsService::getSettingsRoot()->getGroup(group); };
        try {
            ask();
        } catch (const host::UserException& error) {
            EXPECT_EQ(host::toUtf8(error.ToUstring()), test::catchText<std::exception>(ask));
            return host::toUtf8(error.ToUstring());
        }
        ADD_FAILURE() << "nothing was thrown";
        return {};
    }

    /// The start of that text, up to the cause.
    std::string failureIn(const std::string& line) const {
        return "Cannot read the settings file \"" + file.native() + '"' + (line.empty() ? "" : ", line " + line) + ": ";
    }

    const TempFolder folder;
    const fs::path file = folder / "my.ini";
    const ScopedVariable variable{"PROJECT_METADATA_SETTINGS", file};
};

TEST_F(SettingsFile, DefaultsStandInForWhatIsNotSet) {
    for (const char* content :
         {"absent", "", "# nothing\n", "[other]\nDefaultMetadataRoot = x\n", "[korvex.project.creation]\n"}) {
        if (content != std::string("absent"))
            write(content);
        EXPECT_EQ(readRoot(), u"resources/project") << content;
        EXPECT_EQ(read(creation, "DefaultMetadataManager"), u"fixedPath");
        EXPECT_EQ(read("korvex.project.metadata", "MakeReadOnlyMetadataWritable"), u"no");
    }
}

TEST_F(SettingsFile, ValuesAreUtf8Text) {
    write(
        "\xEF\xBB\xBF; first\r\n"
        "[korvex.project.creation]\r\n"
        "DefaultMetadataRoot =  \xC3\xA4 \xF0\x9F\x98\x80/a=b ; c \r\n"
        "DefaultMetadataManager=\r\n"
        "[korvex.project.metadata]\r\n"
        "MakeReadOnlyMetadataWritable=yes");
    EXPECT_EQ(readRoot(), u"\u00E4 \U0001F600/a=b ; c");
    EXPECT_EQ(read(creation, "DefaultMetadataManager"), u"");
    EXPECT_EQ(read("korvex.project.metadata", "MakeReadOnlyMetadataWritable"), u"yes");
}

TEST_F(SettingsFile, EditsAreSeenByTheNextGroup) {
    const auto root = SettingsService::getSettingsRoot();
    const auto before = root->getGroup(creation);
    write(contentFor("one"));
    EXPECT_EQ(before->getText("DefaultMetadataRoot", ""), u"resources/project");
    EXPECT_EQ(root->getGroup(creation)->getText("DefaultMetadataRoot", ""), u"one");
    write(contentFor("two"));
    EXPECT_EQ(readRoot(), u"two");
}

TEST_F(SettingsFile, GroupsAndKeysThatAreNotThere) {
    write("[a.b]\nkey = value\n");
    const auto parent = SettingsService::getSettingsRoot()->getGroup("a");
    EXPECT_EQ(parent->getGroup("a.b")->getText("key", ""), u"value");
    EXPECT_THROW(parent->getGroup(creation), std::exception);
    EXPECT_THROW(parent->getGroup("a"), std::exception);
    EXPECT_EQ(failure("a.c"), "There is no settings group \"a.c\" in the settings file \"" + file.native() + '"');
    EXPECT_EQ(
        test::catchText<std::exception>([] { read("a.b", "other"); }),
        "There is no setting \"other\" in the settings group \"a.b\" of the settings file \"" + file.native() + '"');
    EXPECT_THROW(read("a", "key"), std::exception);
}

TEST_F(SettingsFile, MalformedFilesAreReportedWithTheLine) {
    const std::pair<const char*, const char*> cases[] = {
        {"[a]\nx = 1\nno equals sign\n", "3"},
        {"\n[unclosed\n", "2"},
        {"[a]\n= 1\n", "2"},
        {"[a]\nx = 1\nx = 2\n", "3"},
        {"[a]\nx = 1\n[b]\ny=1\n[a]\n", "5"},
        {"[a]\nx = \xE4\n", "2"},
        {"x = 1\n", ""},
    };
    for (const auto& [content, line] : cases) {
        write(content);
        EXPECT_EQ(failure().find(failureIn(line)), 0U) << failure();
        EXPECT_GT(failure().size(), failureIn(line).size());
    }
}

TEST_F(SettingsFile, UnreadableFilesAreReportedWithTheCause) {
    fs::create_directory(file);
    EXPECT_EQ(failure(), failureIn("") + "Is a directory");
    fs::remove(file);
    write(contentFor("one"));
    fs::permissions(file, fs::perms(0200));
    const test::UnprivilegedUser user;
    if (getuid() != 0)
        fs::permissions(file, fs::perms::none);
    EXPECT_EQ(failure(), failureIn("") + "Permission denied");
}

TEST(Settings, TheFileIsFoundInTheConfigurationFolder) {
    const TempFolder folder;
    const std::string relative = "/project-metadata/settings.ini";
    writeBytes(folder / ("xdg" + relative), contentFor("xdg"));
    writeBytes(folder / ("home/.config" + relative), contentFor("home"));
    const ScopedVariable none("PROJECT_METADATA_SETTINGS", "");
    const ScopedVariable home("HOME", folder / "home");
    {
        const ScopedVariable xdg("XDG_CONFIG_HOME", folder / "xdg");
        EXPECT_EQ(readRoot(), u"xdg");
    }
    {
        const ScopedVariable noFolder("XDG_CONFIG_HOME", folder / ("xdg" + relative));
        EXPECT_EQ(readRoot(), u"resources/project");
    }
    for (const char* ignored : {"", "relative"}) {
        const ScopedVariable xdg("XDG_CONFIG_HOME", ignored);
        EXPECT_EQ(readRoot(), u"home") << ignored;
    }
    const ScopedVariable xdg("XDG_CONFIG_HOME", std::nullopt);
    const ScopedVariable homeless("HOME", std::nullopt);
    EXPECT_EQ(readRoot(), u"resources/project");
}

TEST(Settings, TheRootCanBeReplacedAndTakenAway) {
    const auto before = SettingsService::getSettingsRoot();
    ASSERT_NE(before, nullptr);
    {
        const test::SettingsOverride settings({{{creation, "DefaultMetadataRoot"}, u"mine"}});
        EXPECT_EQ(readRoot(), u"mine");
        const test::SettingsOverride none(std::shared_ptr<const host::SettingsGroup>{});
        EXPECT_EQ(SettingsService::getSettingsRoot(), nullptr);
    }
    EXPECT_EQ(SettingsService::getSettingsRoot(), before);
}

TEST(Settings, TheRootCanBeReplacedWhileOthersRead) {
    const TempFolder folder;
    const ScopedVariable variable("PROJECT_METADATA_SETTINGS", folder / "absent");
    const auto fromFile = SettingsService::getSettingsRoot();
    std::vector<std::thread> threads(4);
    for (std::thread& thread : threads) {
        thread = std::thread([] {
            for (int round = 0; round < 200; ++round)
                EXPECT_EQ(readRoot(), u"resources/project");
        });
    }
    for (int round = 0; round < 200; ++round) {
        const test::SettingsOverride same({{{creation, "DefaultMetadataRoot"}, u"resources/project"}});
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(SettingsService::getSettingsRoot(), fromFile);
}

}  // namespace
