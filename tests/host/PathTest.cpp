/// What a path's name on disk is, and the operations on its text, with std::filesystem as the judge.
#include "host/Path.hpp"

#include "host/FileUtils.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <random>

namespace fs = std::filesystem;
using host::FileUtils;
using host::Path;

namespace {

/// A random text of up to `length` bytes, each taken from `units`.
std::string makeText(std::mt19937& random, const std::string& units, std::size_t length) {
    std::string text(std::uniform_int_distribution<std::size_t>(0, length)(random), '\0');
    for (char& unit : text)
        unit = units[std::uniform_int_distribution<std::size_t>(0, units.size() - 1)(random)];
    return text;
}

TEST(Path, EveryNameOnDiskComesBackAndIsTextWhereItCanBe) {
    std::mt19937 random(1);
    // The bytes at which sequences begin, go on and turn ill-formed.
    const std::string edges = "a/\x80\x8F\x90\x9F\xA0\xB2\xBF\xC0\xC1\xC2\xDF\xE0\xED\xEF\xF0\xF4\xF5\xFF";
    for (int i = 0; i < 100'000; ++i) {
        const std::string bytes = makeText(random, edges, 12);
        ASSERT_EQ(Path::fromAccessName(bytes).accessName(), bytes) << testing::PrintToString(bytes);
    }
    EXPECT_EQ(Path::fromAccessName("\xC3\xA4/\xF0\x9F\x98\x80\x80").text(), u"\u00E4/\U0001F600\xDC80");
    EXPECT_EQ(Path::fromAccessName("\xE4/\xED\xB2\x80").text(), u"\xDCE4/\xDCED\xDCB2\xDC80");
    EXPECT_EQ((Path(u"a") / Path(u"\xD800")).text(), u"a/\xD800");
    EXPECT_EQ(Path(u"\xD800.").accessName(), "\xEF\xBF\xBD.");
}

TEST(Path, ElementsAndOrderAreThoseOfStdFilesystem) {
    std::mt19937 random(2);
    const auto plain = [](const Path& path) { return fs::path(path.accessName()).generic_string(); };
    for (int i = 0; i < 20'000; ++i) {
        const std::string left = makeText(random, "//ab.", 8);
        const std::string right = makeText(random, "//ab.", 8);
        const Path path = Path::fromAccessName(left);
        const Path other = Path::fromAccessName(right);
        const fs::path judge = left;
        ASSERT_EQ(plain(path.fileName()), judge.filename()) << left;
        ASSERT_EQ(plain(path / other), judge / right) << left << ' ' << right;
        ASSERT_EQ(path.parentPath(), Path::fromAccessName(judge.parent_path().native())) << left;
        if (left.empty() || right.empty() || judge.is_absolute() != fs::path(right).is_absolute())
            continue;
        ASSERT_EQ(path < other, judge < right) << left << ' ' << right;
        ASSERT_EQ(path == other, judge == right) << left << ' ' << right;
    }
    const Path sorted[] = {u"", u"/z", u"a", u"a/b", u"a.b", u"\U0001F600", u"\uFFFD"};
    EXPECT_TRUE(std::is_sorted(std::begin(sorted), std::end(sorted)));
}

TEST(Path, NormalFormAndAncestors) {
    const std::pair<Path, Path> normal[] = {{u"/a/./b//c/", u"/a/b/c"},
                                            {u"/a/b/../c/..", u"/a"},
                                            {u"a/..", u"."},
                                            {u"///", u"/"},
                                            {u"/../a", u"/a"},
                                            {u"", u""},
                                            {u"a/../../\xDCE4", u"../\xDCE4"}};
    for (const auto& [path, expected] : normal)
        EXPECT_EQ(FileUtils::normalize(path).text(), expected.text()) << path.accessName();

    for (const Path ancestor : {u"/a//b/", u"/a", u"/"})
        EXPECT_TRUE(FileUtils::isAncestor(ancestor, u"/a/b/c")) << ancestor.accessName();
    for (const Path other : {u"/a/b", u"/a/b/", u"/a/b/c", u"/a/bc", u"/b", u"a", u""})
        EXPECT_FALSE(FileUtils::isAncestor(other, u"/a/b")) << other.accessName();
}

}  // namespace
