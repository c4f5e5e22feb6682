/// The rules for keys and values, against independent statements of the same rules over whole ranges of characters.
#include "project/metadata/AttributeRules.hpp"

#include <cstdio>
#include <string>

#include <gtest/gtest.h>
#include <libxml/tree.h>

#include "host/XmlText.hpp"

using namespace project::metadata;
using namespace std::string_literals;

namespace {

bool isHigh(char16_t unit) {
    return unit >= 0xD801 && unit <= 0xDBFE;
}

bool isLow(char16_t unit) {
    return unit >= 0xDC01 && unit <= 0xDFFE;
}

bool isOrdinary(char16_t unit) {
    return unit == u'\t' || unit == u'\n' || unit == u'\r' ||
           (unit >= 0x20 && unit <= 0xFFFD && !isHigh(unit) && !isLow(unit));
}

/// A value is a sequence of ordinary characters and surrogate pairs.
bool isSequenceOfCharacters(const std::u16string& value) {
    for (std::size_t i = 0; i < value.size(); ++i) {
        if (i + 1 < value.size() && isHigh(value[i]) && isLow(value[i + 1]))
            ++i;
        else if (!isOrdinary(value[i]))
            return false;
    }
    return true;
}

std::string hex(const std::u16string& text) {
    std::string digits;
    for (const char16_t unit : text) {
        char number[8];
        std::snprintf(number, sizeof number, "%04X ", static_cast<unsigned>(unit));
        digits += number;
    }
    return digits;
}

void checkValue(const std::u16string& value) {
    ASSERT_EQ(isValidAttribute(value), isSequenceOfCharacters(value)) << hex(value);
}

void checkKey(const std::u16string& key) {
    ASSERT_EQ(isValidKey(key), xmlValidateName(host::XmlText(key).get(), 1) == 0) << hex(key);
}

}  // namespace

TEST(AttributeRulesTest, valuesAreSequencesOfCharactersAndSurrogatePairs) {
    for (unsigned unit = 0; unit <= 0xFFFF; ++unit)
        checkValue({static_cast<char16_t>(unit)});

    const std::u16string bounds{0x0000, 0x0001, 0x0008, 0x0009, 0x000A, 0x000B, 0x000C, 0x000D, 0x000E, 0x001F,
                                0x0020, 0x0061, 0x007F, 0x0080, 0xD7FF, 0xD800, 0xD801, 0xD83D, 0xDBFE, 0xDBFF,
                                0xDC00, 0xDC01, 0xDE00, 0xDFFE, 0xDFFF, 0xE000, 0xFFFD, 0xFFFE, 0xFFFF};
    for (const char16_t first : bounds) {
        for (const char16_t second : bounds) {
            for (const char16_t third : bounds)
                checkValue({first, second, third});
            // Also far from the start, at every place within a block of units that may be tested together.
            for (std::size_t place = 0; place < 40; ++place) {
                std::u16string value(42, u'a');
                value[place] = first;
                value[place + 1] = second;
                checkValue(value);
                checkValue(value.substr(0, place + 2));
            }
        }
    }
}

TEST(AttributeRulesTest, examplesOfValues) {
    for (const std::u16string& value :
         {u""s, u"two\nlines\tand a tab\r"s, u"\xD83D\xDE00"s, u"\xD800"s, u"\xDFFF"s, u"\xDC00\xDBFF"s})
        EXPECT_TRUE(isValidAttribute(value)) << hex(value);
    for (const std::u16string& value :
         {u"a\x01"s, u"\uFFFE"s, u"a\0b"s, u"\xD83D"s, u"\xDE00"s, u"\xD83Dx"s, u"\xD83D\xD83D\xDE00"s})
        EXPECT_FALSE(isValidAttribute(value)) << hex(value);
}

TEST(AttributeRulesTest, keysAreXmlNames) {
    for (unsigned unit = 1; unit <= 0xFFFF; ++unit) {
        const auto character = static_cast<char16_t>(unit);
        checkKey({character});
        checkKey({u'a', character});
        checkKey({character, u'a'});
        checkKey({u'a', character, u'a'});
    }
}

TEST(AttributeRulesTest, examplesOfKeys) {
    for (const std::u16string& key : {u"a"s, u"_x"s, u"ns:key"s, u"a.b-c"s, u":"s, u"x1"s, u" a "s, u"\t\r\na \n"s})
        EXPECT_TRUE(isValidKey(key)) << hex(key);
    for (const std::u16string& key :
         {u""s, u" "s, u"1a"s, u"a b"s, u"-a"s, u".a"s, u"a="s, u"a\0b"s, u"a\0"s, u"\0a"s, u"a\xD83D"s, u"\u00A0a"s})
        EXPECT_FALSE(isValidKey(key)) << hex(key);
}
