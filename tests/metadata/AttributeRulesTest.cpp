/// The rules for keys and values: by characters at their bounds, and by every character there is.
#include "project/metadata/AttributeRules.hpp"

#include <string>

#include <gtest/gtest.h>
#include <libxml/tree.h>

#include "host/XmlText.hpp"

using namespace project::metadata;
using namespace std::string_literals;

TEST(AttributeRulesTest, valuesAreOrdinaryCharactersAndPairsOfSurrogatesInsideTheirBlocks) {
    for (const std::u16string& value :
         {u""s, u"two\nlines\tand a tab\r"s, u"\x20\x7F\xD7FF\xE000\xFFFD"s, u"\xD801\xDC01x\xDBFE\xDFFE"s, u"\xD800"s,
          u"\xDBFF"s, u"\xDC00"s, u"\xDFFF"s, u"\xDC00\xDBFF"s})
        EXPECT_TRUE(isValidAttribute(value)) << testing::PrintToString(value);
    for (const std::u16string& value :
         {u"a\x01"s, u"\x08"s, u"\x0B"s, u"\x1F"s, u"\uFFFE"s, u"\uFFFF"s, u"a\0b"s, u"\xD801"s, u"\xDBFEx"s,
          u"\xDC01"s, u"x\xDFFE"s, u"\xD83D\xD83D\xDE00"s, u"\xD83D\xDC00"s, u"\xD83D\xDFFF"s, u"\xD800\xDE00"s})
        EXPECT_FALSE(isValidAttribute(value)) << testing::PrintToString(value);
}

TEST(AttributeRulesTest, keysAreXmlNamesWithBlanksAroundThem) {
    for (const std::u16string& key :
         {u"a"s, u"_x"s, u"ns:key"s, u"a.b-c"s, u":"s, u"x1"s, u"\uD55C"s, u" a "s, u"\t\r\na \n"s})
        EXPECT_TRUE(isValidKey(key)) << testing::PrintToString(key);
    for (const std::u16string& key :
         {u""s, u" "s, u"1a"s, u"a b"s, u"-a"s, u".a"s, u"a="s, u"a\0b"s, u"a\0"s, u"\0a"s, u"a\xD83D"s, u"\u00A0a"s})
        EXPECT_FALSE(isValidKey(key)) << testing::PrintToString(key);
}

TEST(AttributeRulesTest, everyCharacterIsTakenInAKeyWhereLibxml2TakesIt) {
    std::size_t disagreed = 0;
    for (char32_t codePoint = 1; codePoint < 0x110000; ++codePoint) {
        const bool isSurrogate = codePoint >= 0xD800 && codePoint < 0xE000;
        std::u16string character{static_cast<char16_t>(codePoint)};
        if (codePoint >= 0x10000)
            character = {static_cast<char16_t>(0xD7C0 + (codePoint >> 10)),
                         static_cast<char16_t>(0xDC00 + (codePoint & 0x3FF))};
        for (const std::u16string& key : {character, u"a" + character, character + u"a", u" " + character + u"\n"})
            // XmlText has U+FFFD for what is no character.
            disagreed += isValidKey(key) != (!isSurrogate && xmlValidateName(host::XmlText(key).get(), 1) == 0);
    }
    EXPECT_EQ(disagreed, 0U);
}

TEST(AttributeRulesTest, everyUnitIsTakenInAValueWhereItMayStand) {
    const auto isIn = [](char16_t unit, unsigned first, unsigned last) { return unit >= first && unit <= last; };
    const auto isHigh = [&](char16_t unit) { return isIn(unit, 0xD801, 0xDBFE); };
    const auto isLow = [&](char16_t unit) { return isIn(unit, 0xDC01, 0xDFFE); };
    const auto isAlone = [&](char16_t unit) {
        return unit == 0x9 || unit == 0xA || unit == 0xD || (isIn(unit, 0x20, 0xFFFD) && !isHigh(unit) && !isLow(unit));
    };
    std::size_t disagreed = 0;
    for (unsigned number = 0; number < 0x10000; ++number) {
        const auto unit = static_cast<char16_t>(number);
        disagreed += isValidAttribute({unit}) != isAlone(unit);
        for (unsigned other :
             {0x0U, 0x41U, 0xD800U, 0xD801U, 0xDBFEU, 0xDBFFU, 0xDC00U, 0xDC01U, 0xDFFEU, 0xDFFFU, 0xFFFEU}) {
            const auto next = static_cast<char16_t>(other);
            const bool expected = (isAlone(unit) && isAlone(next)) || (isHigh(unit) && isLow(next));
            disagreed += isValidAttribute({unit, next}) != expected;
            disagreed += isValidAttribute({u'a', unit, next, u'b'}) != expected;
        }
    }
    EXPECT_EQ(disagreed, 0U);
}
