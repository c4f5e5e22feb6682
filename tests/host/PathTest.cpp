/// What a path's name on disk is, and the operations on its text, with std::filesystem as the judge.
#include "host/Path.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <random>
#include <set>
#include <string>

using host::Path;

namespace {

std::string backAndForth(const std::string& bytes) {
    return Path::fromAccessName(bytes).accessName();
}

/// A random text of up to `length` units, each taken from `units`.
template <class Unit>
std::basic_string<Unit> makeText(std::mt19937& random, const std::basic_string<Unit>& units, std::size_t length) {
    std::uniform_int_distribution<std::size_t> anyLength(0, length);
    std::uniform_int_distribution<std::size_t> anyUnit(0, units.size() - 1);
    std::basic_string<Unit> text(anyLength(random), Unit());
    for (Unit& unit : text)
        unit = units[anyUnit(random)];
    return text;
}

std::string plain(const Path& path) {
    return std::filesystem::path(path.accessName()).generic_string();
}

TEST(PathName, EveryByteStringComesBack) {
    for (const std::string bytes :
         {"", "plain", "\xC3\xA4", "\xF0\x9F\x98\x80", "\xEF\xBF\xBD", "\xF4\x8F\xBF\xBF",
          // Single bytes, truncated sequences, a sequence that is interrupted
          "\x80", "\xFF", "\xC3", "\xE2\x82", "\xF0\x9F\x98", "\xF0\x9F\x98/", "\xE2\x82\xC3\xA4",
          // Overlong forms, surrogates, above U+10FFFF
          "\xC0\xAF", "\xE0\x80\xAF", "\xF0\x80\x80\xAF", "\xED\xB2\x80", "\xED\xA0\x80\xED\xB0\x80",
          "\xF4\x90\x80\x80", "\xF8\x88\x80\x80\x80"})
        EXPECT_EQ(backAndForth(bytes), bytes);

    std::mt19937 random(1);
    std::string anyByte(256, '\0');
    for (std::size_t i = 0; i < anyByte.size(); ++i)
        anyByte[i] = static_cast<char>(i);
    // The bytes at which sequences begin, go on and turn ill-formed.
    const std::string edges = "a/\x80\x8F\x90\x9F\xA0\xBF\xC0\xC1\xC2\xDF\xE0\xED\xEF\xF0\xF4\xF5\xFF\xB2";
    for (int i = 0; i < 100'000; ++i) {
        const std::string bytes = makeText(random, i % 2 == 0 ? anyByte : edges, 12);
        ASSERT_EQ(backAndForth(bytes), bytes) << testing::PrintToString(bytes);
    }
}

TEST(PathName, NamesAreTextWhereTheyCanBe) {
    EXPECT_EQ(Path::fromAccessName("\xC3\xA4/\xF0\x9F\x98\x80").text(), u"\u00E4/\U0001F600");
    EXPECT_EQ(Path::fromAccessName("\xE4/\xED\xB2\x80").text(), u"\xDCE4/\xDCED\xDCB2\xDC80");
    EXPECT_EQ(Path::fromAccessName("\xF0\x9F\x98\x80\x80").text(), u"\U0001F600\xDC80");
}

TEST(PathName, TextThatNoNameOnDiskGives) {
    const std::u16string loneSurrogates = {u'a', 0xD800, u'b', 0xDC7F, 0xDD00, 0xDBFF};
    EXPECT_EQ(Path(loneSurrogates).accessName(),
              "a\xEF\xBF\xBD"
              "b\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD");
    EXPECT_EQ(Path(loneSurrogates).text(), loneSurrogates);

    const Path spelled(u"\xDCC3\xDCA4");
    EXPECT_NE(Path(std::u16string(u"a\0b", 3)), u"a/b");
    EXPECT_EQ(spelled.accessName(), "\xC3\xA4");
    EXPECT_NE(spelled, Path::fromAccessName(spelled.accessName()));
}

TEST(PathText, ElementsAreThoseOfStdFilesystem) {
    std::mt19937 random(2);
    const std::string units = "//ab.";
    for (int i = 0; i < 20'000; ++i) {
        const std::string left = makeText(random, units, 8);
        const std::string right = makeText(random, units, 8);
        const Path path = Path::fromAccessName(left);
        const std::filesystem::path judge = left;
        ASSERT_EQ(plain(path.fileName()), judge.filename()) << left;
        ASSERT_EQ(plain(path / Path::fromAccessName(right)), judge / right) << left << ' ' << right;
        ASSERT_EQ(path.parentPath(), Path::fromAccessName(judge.parent_path().native())) << left;

        const int order = path.compare(Path::fromAccessName(right));
        if (left.empty() || right.empty())
            continue;
        const bool sameRoot = judge.is_absolute() == std::filesystem::path(right).is_absolute();
        const int judged = sameRoot ? judge.compare(right) : (judge.is_absolute() ? -1 : 1);
        ASSERT_EQ(order < 0, judged < 0) << left << ' ' << right;
        ASSERT_EQ(order == 0, judged == 0) << left << ' ' << right;
    }
}

TEST(PathText, OperationsKeepTextThatNoDiskHas) {
    const std::u16string lone(1, 0xD800);
    const Path path = Path(u"/" + lone + u"/b") / Path(lone);
    EXPECT_EQ(path.text(), u"/" + lone + u"/b/" + lone);
    EXPECT_EQ(path.fileName().text(), lone);
    EXPECT_EQ(path.parentPath().parentPath().text(), u"/" + lone);
    EXPECT_EQ(path.native().text(), path.text());

    Path twice = u"a/";
    const Path& same = twice;
    twice /= same;
    EXPECT_EQ(twice.text(), u"a/a/");
}

TEST(PathText, OrderGroupsWhatIsBelow) {
    const std::set<Path> sorted{u"b", u"", u"a/b", u"a.b", u"a", u"/z", u"a//b", u"\uFFFD", u"\U0001F600", u"a/"};
    std::u16string order;
    for (const Path& path : sorted)
        order += path.text() + u' ';
    EXPECT_EQ(order, u" /z a a/ a/b a.b b \U0001F600 \uFFFD ");
}

}  // namespace
