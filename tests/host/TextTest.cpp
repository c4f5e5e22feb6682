/// UTF-8 and UTF-16, for general text and for libxml2.
#include "host/Text.hpp"

#include "host/XmlText.hpp"

#include <gtest/gtest.h>

TEST(Text, WhatIsWellFormedComesBackAndTheRestIsReplaced) {
    const std::u16string edges = u"\u007F\u0080\u07FF\u0800\uD7FF\uE000\uFFFF\U00010000\U0010FFFF";
    const std::string bytes =
        "\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBF\xF0\x90\x80\x80\xF4\x8F\xBF\xBF";
    EXPECT_EQ(host::toUtf8(edges), bytes);
    EXPECT_EQ(host::fromUtf8(bytes), edges);
    EXPECT_EQ(host::fromUtf8("a\xFF\xC3z\xC0\xAF\xED\xA0\x80"), u"a\uFFFD\uFFFDz\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD");

    const std::u16string lone = {u'a', 0xDE00, 0xD83D, u'b', 0xDC80, 0xD83D};
    EXPECT_EQ(host::fromUtf8(host::toUtf8(lone)), u"a\uFFFD\uFFFDb\uFFFD\uFFFD");
    const host::XmlText text(u"\U0001F600" + lone + std::u16string(u"\0c", 2));
    EXPECT_EQ(host::XmlText::toUtf16(text.get()), u"\U0001F600a\uFFFD\uFFFDb\uFFFD\uFFFD\uFFFDc");
}
