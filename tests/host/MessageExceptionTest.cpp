/// Message IDs, the sentences of the catalog, and what the error template promises.
#include "host/MessageException.hpp"

#include <gtest/gtest.h>

#include <exception>
#include <memory>
#include <string>
#include <vector>

using host::getMessageText;
using host::MessageArgument;
using host::MessageId;

namespace {

/// The library's message `key` with these arguments.
std::u16string metadataText(const char* key, const std::vector<MessageArgument>& arguments) {
    return getMessageText({"KORVEX:project:metadata", key, arguments});
}

struct CannotRead {
    static constexpr const char* catalog = "KORVEX:project:metadata";
    static constexpr const char* key = "MetadataReadFailure";
    static constexpr int argumentCount = 2;
};

struct NumberedError : std::exception {
    int number = 7;
};

using CannotReadError = host::MessageException<CannotRead, NumberedError>;

TEST(MessageCatalog, SentencesNameThePathAndTheCause) {
    const std::u16string path = u"/p/\u00E4 b.xml";
    const std::u16string cause = u"No space left";
    for (const char* key : {"MetadataWriteFailure", "FailedToMakeMetadataWritable", "ListChildFilesFailure",
                            "MetadataReadFailure", "ReadOnlyMetadataFailure"}) {
        const auto withCause = metadataText(key, {path, cause});
        EXPECT_NE(withCause.find(u'"' + path + u'"'), std::u16string::npos) << key;
        const std::u16string end = u": " + cause;
        const bool hasCause = std::string(key) != "ReadOnlyMetadataFailure";
        EXPECT_EQ(withCause.find(end) == withCause.size() - end.size(), hasCause) << key;
        // Neither an ID nor what is left of a pattern.
        EXPECT_EQ(withCause.find(u"KORVEX"), std::u16string::npos) << key;
        for (const auto& text : {withCause, metadataText(key, {path, u""})})
            EXPECT_EQ(text.find_first_of(u"{}[]|"), std::u16string::npos) << key;
    }
    EXPECT_EQ(metadataText("FailedToMakeMetadataWritable", {path, cause}),
              u"Cannot make \"/p/\u00E4 b.xml\" writable: No space left");
    EXPECT_EQ(metadataText("FailedToMakeMetadataWritable", {path, u""}), u"Cannot make \"/p/\u00E4 b.xml\" writable");
    EXPECT_EQ(metadataText("MetadataReadFailure", {path, u""}),
              u"Cannot read metadata from \"/p/\u00E4 b.xml\": it cannot be opened, or it is not complete, "
              u"well-formed XML");
}

TEST(MessageCatalog, ValuesAreShownAsTheyCanBeRead) {
    EXPECT_EQ(metadataText("PutMetadataKeyFailure", {u"1{2}[|]"}), u"The attribute key \"1{2}[|]\" is not an XML name");
    EXPECT_EQ(
        metadataText("PutMetadataValueFailure", {u"a\u0001\n\xD83D\uFFFE\u009B"}),
        u"The attribute value \"a\\u0001\\u000A\\uD83D\\uFFFE\\u009B\" holds a character that cannot stand in XML");

    const std::u16string pairs = metadataText("PutMetadataValueFailure", {u"x" + [] {
                                                  std::u16string text;
                                                  for (int i = 0; i < 5000; ++i)
                                                      text += u"\U0001F600";
                                                  return text;
                                              }()});
    EXPECT_LT(pairs.size(), 200U);
    EXPECT_NE(pairs.find(u"\U0001F600\u2026\""), std::u16string::npos);
    EXPECT_NE(metadataText("MetadataReadFailure", {std::u16string(4000, u'p'), u""}).find(std::u16string(4000, u'p')),
              std::u16string::npos);
}

TEST(MessageCatalog, AnIdThatItDoesNotHold) {
    const MessageId id{"some:catalog", "Key", {std::int64_t{-3}, "b\xC3\xA4", u"c\n"}};
    EXPECT_EQ(getIdText(id), "some:catalog:Key");
    EXPECT_EQ(getMessageText(id), u"some:catalog:Key \"-3\" \"b\u00E4\" \"c\\u000A\"");
    EXPECT_EQ(getMessageText({"KORVEX:project:metadata", "MetadataReadFailure", {}}).find(u"Cannot read"), 0U);
}

TEST(MessageException, CopiesKeepTheDynamicType) {
    std::unique_ptr<host::UserException> copy;
    try {
        throw CannotReadError(u"/p", u"why");
    } catch (const host::UserException& error) {
        copy = error.clone();
    }
    try {
        copy->rethrow();
        FAIL() << "nothing was thrown";
    } catch (const NumberedError& base) {
        const auto& error = dynamic_cast<const CannotReadError&>(base);
        EXPECT_EQ(error.number, 7);
        EXPECT_EQ(error.GetID(), "KORVEX:project:metadata:MetadataReadFailure");
        EXPECT_STREQ(base.what(), "Cannot read metadata from \"/p\": why");
        EXPECT_EQ(error.ToUstring(), u"Cannot read metadata from \"/p\": why");
        const MessageId& id = error.GetBaseMsgIDObj();
        EXPECT_EQ(id.catalog, "KORVEX:project:metadata");
        EXPECT_EQ(id.key, "MetadataReadFailure");
        EXPECT_EQ(id.arguments, (std::vector<MessageArgument>{u"/p", u"why"}));
        EXPECT_EQ(id.arguments.front().index(), 2U);
    }
}

}  // namespace
