// Nodes as databases hold them: many of them, good and bad, read by one decoder.

#include <gtest/gtest.h>

#include <string_view>

#include "store_support/NodeBlob.hpp"
#include "tests/stores/StoreHelpers.hpp"

using namespace test;
using store_support::encodeNode;
using store_support::NodeDecoder;

namespace {

std::u16string describeDecoded(NodeDecoder& decoder, std::string_view bytes) {
    const auto decoded = decoder.decode(bytes);
    return decoded ? describe(*decoded) : u"none";
}

TEST(NodeDecoderTest, NothingOfABadNodeGetsIntoTheNext) {
    MetadataNodeSpecification tree(u"Pump");
    tree.put(u"Name", u"F\u00F6rderer");
    tree.createChildNode(u"Signal").put(u"Id", u"1");
    tree.createChildNode(u"Signal").createChildNode().put(u"x", u"2");
    const std::string bytes = encodeNode(tree);
    NodeDecoder decoder;
    for (std::size_t size = 0; size < bytes.size(); ++size) {
        EXPECT_FALSE(decoder.decode(bytes.substr(0, size))) << size;
        std::string bad = bytes;
        bad[size] = '\0';
        decoder.decode(bad);
        EXPECT_EQ(describeDecoded(decoder, bytes), describe(tree)) << size;
    }
}

TEST(NodeDecoderTest, ThereMayBeAnyNumberOfKinds) {
    NodeDecoder decoder;
    std::vector<std::unique_ptr<MetadataNode>> kept;
    for (int round = 0; round < 2; ++round) {
        for (int i = 0; i < 1500; ++i) {
            const auto one = node(number(i), u"n" + number(i));
            one->put(u"k" + number(i % 90), u"");
            kept.push_back(decoder.decode(encodeNode(*one)));
            ASSERT_TRUE(kept.back());
            EXPECT_EQ(describe(*kept.back()), describe(*one));
        }
    }
    EXPECT_EQ(describe(*kept.front()), u"<n0 Value='0' k0=''>");
}

TEST(NodeDecoderTest, WhatIsANodeIsSaidWithoutMakingIt) {
    const std::pair<std::string, bool> values[] = {{"", true},
                                                   {"\t\x7F", true},
                                                   {"\xC2\xB0"
                                                    "C",
                                                    true},
                                                   {"\xF0\x9D\x84\x9E", true},
                                                   {"a\x01", false},
                                                   {"\xC3", false},
                                                   {"\xEF\xBF\xBE", false},
                                                   {"\xF0\x9F\x90\x80", false},
                                                   {"\xC1\x81", false},
                                                   {"\xED\xA0\x81", false}};
    for (const auto& [value, isNode] : values) {
        std::string bytes("\1n\1\1k");
        bytes += static_cast<char>(value.size());
        bytes += value + '\0';
        EXPECT_EQ(store_support::isNode(bytes), isNode) << value;
        EXPECT_EQ(NodeDecoder().decode(bytes) != nullptr, isNode) << value;
    }
}

TEST(NodeDecoderTest, NoNameHoldsAZero) {
    using namespace std::string_view_literals;
    NodeDecoder decoder;
    for (const std::string_view bytes : {"\3a\0b\0\0"sv, "\1n\1\3a\0b\0\0"sv}) {
        EXPECT_EQ(describeDecoded(decoder, bytes), u"none");
        EXPECT_FALSE(store_support::isNode(bytes));
    }
    EXPECT_EQ(describeDecoded(decoder, "\1n\1\1a\1b\0"sv), u"<n a='b'>");
}

}  // namespace
