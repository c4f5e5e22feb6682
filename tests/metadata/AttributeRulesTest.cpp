/// The rules for keys and values, by characters at their bounds.
#include "project/metadata/AttributeRules.hpp"

#include <string>

#include <gtest/gtest.h>

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
