/// UTF-8 and UTF-16, for general text and for libxml2.
#include "host/Text.hpp"

#include "host/XmlText.hpp"

#include <gtest/gtest.h>

#include <string>

namespace {

const std::u16string loneSurrogates = {u'a', 0xDE00, 0xD83D, u'b', 0xDC80, 0xD83D};

TEST(Text, EveryCodePointComesBack) {
    for (char32_t codePoint = 0; codePoint <= 0x10FFFF; ++codePoint) {
        if (codePoint >= 0xD800 && codePoint <= 0xDFFF)
            continue;
        std::u16string text;
        if (codePoint < 0x10000)
            text = {static_cast<char16_t>(codePoint)};
        else
            text = {static_cast<char16_t>(0xD7C0 + (codePoint >> 10)),
                    static_cast<char16_t>(0xDC00 + (codePoint & 0x3FF))};
        ASSERT_EQ(host::fromUtf8(host::toUtf8(text)), text) << codePoint;
    }
    EXPECT_EQ(host::toUtf8(u"\u007F\u0080\u07FF\u0800\uFFFF\U00010000\U0010FFFF"),
              "\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF\xF0\x90\x80\x80\xF4\x8F\xBF\xBF");
}

TEST(Text, WhatIsIllFormedIsReplaced) {
    EXPECT_EQ(host::toUtf8(loneSurrogates),
              "a\xEF\xBF\xBD\xEF\xBF\xBD"
              "b\xEF\xBF\xBD\xEF\xBF\xBD");
    EXPECT_EQ(host::fromUtf8("a\xFF\xC3z\xC0\xAF\xED\xA0\x80"), u"a\uFFFD\uFFFDz\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD");
    EXPECT_EQ(host::fromUtf8({"a\0b", 3}), std::u16string(u"a\0b", 3));
}

TEST(XmlText, HoldsWellFormedText) {
    const host::XmlText text(std::u16string(u"\u00E4\U0001F600") + loneSurrogates + std::u16string(u"\0\0c", 3));
    EXPECT_EQ(host::XmlText::toUtf16(text.get()), u"\u00E4\U0001F600a\uFFFD\uFFFDb\uFFFD\uFFFD\uFFFD\uFFFDc");
    EXPECT_EQ(host::XmlText::toUtf16(nullptr), u"");
}

}  // namespace
