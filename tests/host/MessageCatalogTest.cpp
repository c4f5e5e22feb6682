/// The sentences of the message catalog.
#include "host/MessageException.hpp"

#include "host/Text.hpp"

#include <gtest/gtest.h>

TEST(MessageCatalog, SentencesAreForPeople) {
    const std::pair<host::MessageId, std::string> cases[] = {
        {{"KORVEX:project:metadata", "ReadOnlyMetadataFailure", {u"/p"}},
         "Cannot change \"/p\", because it or its folder is read-only"},
        {{"KORVEX:project:metadata", "MetadataWriteFailure", {"/p", "why"}}, "Cannot write metadata to \"/p\": why"},
        {{"KORVEX:project:metadata", "MetadataWriteFailure", {u"/p", u""}},
         "Cannot write metadata to \"/p\": it cannot be opened, or there is no space left"},
        {{"KORVEX:project:metadata", "FailedToMakeMetadataWritable", {u"/p"}}, "Cannot make \"/p\" writable"},
        {{"KORVEX:project:metadata", "ListChildFilesFailure", {u"/p", u"why"}}, "Cannot list the folder \"/p\": why"},
        {{"KORVEX:project:metadata", "MetadataReadFailure", {u"/p", u""}},
         "Cannot read metadata from \"/p\": it cannot be opened, or it is not complete, well-formed XML"},
        {{"KORVEX:project:metadata", "PutMetadataKeyFailure", {u"{2}[|]" + std::u16string(100, u'x')}},
         "The attribute key \"{2}[|]" + std::string(74, 'x') + "\u2026\" is not an XML name"},
        {{"KORVEX:project:metadata", "PutMetadataValueFailure", {u"\n\xD83D\uFFFE"}},
         "The attribute value \"\\u000A\\uD83D\\uFFFE\" holds a character that cannot stand in XML"},
        {{"unknown", "Key", {std::int64_t{-3}, u"c\n"}}, "unknown:Key \"-3\" \"c\\u000A\""},
    };
    for (const auto& [id, text] : cases)
        EXPECT_EQ(host::toUtf8(host::getMessageText(id)), text);
}
