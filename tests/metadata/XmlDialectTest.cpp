/// All that XML allows in a file, and much that it does not: read as libxml2's text reader reads it, and written as its
/// text writer writes it.
#include <libxml/xmlwriter.h>

#include <cstdio>
#include <map>
#include <utility>

#include "host/XmlText.hpp"
#include "project/metadata/AttributeRules.hpp"
#include "project/metadata/MetadataNodeSpecification.hpp"
#include "project/metadata/MetadataXml.hpp"
#include "project/metadata/detail/PlainParser.hpp"
#include "project/metadata/detail/SilentXml.hpp"
#include "tests/metadata/Helpers.hpp"
#include "tests/metadata/XmlDocuments.hpp"
#include "tests/metadata/XmlOracle.hpp"

using namespace project::metadata;
using namespace test;

namespace {

void writeElement(xmlTextWriter* writer, const MetadataNode& node) {
    xmlTextWriterStartElement(writer, host::XmlText(node.getName()).get());
    for (const std::u16string& key : node.getAttributeKeys())
        xmlTextWriterWriteAttribute(writer, host::XmlText(key).get(), host::XmlText(node.get(key)).get());
    for (const auto& child : node.getChildNodes())
        writeElement(writer, *child);
    xmlTextWriterEndElement(writer);
}

std::string writeByTextWriter(const MetadataNode& root) {
    const std::unique_ptr<xmlBuffer, decltype(&xmlBufferFree)> bytes(xmlBufferCreate(), xmlBufferFree);
    const std::unique_ptr<xmlTextWriter, decltype(&xmlFreeTextWriter)> writer(xmlNewTextWriterMemory(bytes.get(), 0),
                                                                              xmlFreeTextWriter);
    xmlTextWriterSetIndent(writer.get(), 1);
    xmlTextWriterSetIndentString(writer.get(), host::XmlText(u"    ").get());
    xmlTextWriterStartDocument(writer.get(), nullptr, "UTF-8", nullptr);
    writeElement(writer.get(), root);
    xmlTextWriterEndDocument(writer.get());
    return reinterpret_cast<const char*>(xmlBufferContent(bytes.get()));
}

detail::PlainDocument parsePlain(const std::filesystem::path& file, detail::Rest rest = detail::Rest::isPassedOver) {
    const detail::SilentXml silent;
    host::InputFileStream stream(file, std::ios::binary);
    return detail::parsePlainDocument(stream, detail::Extent::wholeTree, rest);
}

}  // namespace

TEST(XmlDialectTest, everyDocumentIsReadAsTheTextReaderReadsIt) {
    const TempFolder folder;
    const std::string file = folder / "file.xml";
    for (const XmlGroup& group : allXmlGroups()) {
        std::size_t acceptedCount = 0;
        for (const std::string& document : group.documents) {
            writeBytes(file, document);
            for (const bool isRootOnly : {false, true}) {
                const std::u16string expected = readByOracle(file, isRootOnly);
                EXPECT_TRUE(readByLibrary(file, isRootOnly) == expected)
                    << group.name << ": " << document.substr(0, 300) << "\n"
                    << testing::PrintToString(readByLibrary(file, isRootOnly).substr(0, 300)) << " instead of "
                    << testing::PrintToString(expected.substr(0, 300));
                const auto plain = isRootOnly ? nullptr : project::metadata::readPlainBytes(document);
                EXPECT_TRUE(!plain || render(*plain) == expected) << document.substr(0, 300);
                acceptedCount += !isRootOnly && expected != u"unreadable" && expected.find(u"refused") != 0;
            }
        }
        EXPECT_GE(acceptedCount, group.acceptedCount) << group.name;
        EXPECT_LE(acceptedCount, group.acceptedCount + group.undecidedCount) << group.name;
    }
}

TEST(XmlDialectTest, whatIsNeitherElementNorAttributeIsNoted) {
    const TempFolder folder;
    const std::string file = folder / "file.xml";
    std::map<std::pair<bool, bool>, int> counts;  // by whether there is any, and by whether the fast way was taken
    for (const XmlGroup& group : allXmlGroups()) {
        for (const std::string& document : group.documents) {
            writeBytes(file, document);
            const std::u16string tree = readByLibrary(file, false);
            if (tree == u"unreadable" || tree.find(u"refused") == 0)
                continue;
            project::metadata::LeftOut leftOut;
            EXPECT_TRUE(render(*readFromFile(host::Path::fromAccessName(file), leftOut)) == tree);
            EXPECT_EQ(leftOut.passedOver.empty(), !holdsMoreThanElements(file)) << document.substr(0, 300) << "\n"
                                                                                << host::toUtf8(leftOut.passedOver);
            EXPECT_TRUE(leftOut.refused.empty());
            const bool isPlain = parsePlain(file, detail::Rest::isObstacle).root != nullptr;
            EXPECT_FALSE(isPlain && holdsMoreThanElements(file)) << document.substr(0, 300);
            EXPECT_EQ(project::metadata::readPlainBytes(document) != nullptr, isPlain) << document.substr(0, 300);
            ++counts[{holdsMoreThanElements(file), isPlain}];
        }
    }
    for (const auto& [kind, count] : counts)
        std::printf("%s, %s: %d documents\n", kind.first ? "more than elements" : "elements only",
                    kind.second ? "plain" : "not plain", count);
    EXPECT_GE((counts[{false, true}]), 20);
    EXPECT_GT((counts[{false, false}]), 20);
    EXPECT_GT((counts[{true, false}]), 20);

    EXPECT_FALSE(project::metadata::readPlainBytes(std::string("<r/>\0", 5)));

    writeBytes(file, "<r>\n <s/>\n <!-- 3 --> </r><?p?>");
    project::metadata::LeftOut leftOut;
    readFromFile(host::Path::fromAccessName(file), leftOut);
    EXPECT_EQ(leftOut.passedOver, u"a comment in line 3");
}

TEST(XmlDialectTest, theFastWayIsTakenByPlainDocumentsAndByNoOthers) {
    using detail::Obstacle;
    const std::string million(1'000'000, 'x');
    const std::map<Obstacle, std::vector<std::string>> documents = {
        {Obstacle::none,
         {"<r/>", "<r a='1' b=\"2\"><s/>text<s><t/></s></r>\n", "<?xml version='1.0'?><r/>",
          "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<r a='&amp;&#228;\xC3\xA4'/>",
          "<?xml version='1.0' encoding='utf-8' standalone='yes'?><!-- c --><r><?p i?><![CDATA[<>]]>&lt;</r><!-- c -->",
          "<r a='" + std::string(900'000, 'x') + "'>" + std::string(90'000, ' ') + "<\xC3\xA4/></r>",
          "<r a='\xEF\xBF\xBD' _b.c-d='\xF0\x9F\x98\x80'/>"}},
        {Obstacle::encoding,
         {"<?xml version='1.0' encoding='ISO-8859-1'?><r/>", "\xEF\xBB\xBF<r/>", "\xFF\xFE<\0r\0/\0>\0",
          std::string("<\0r\0/\0>\0", 8), "x", "<?xml version='1.0' encoding='US-ASCII'?><r/>"}},
        {Obstacle::documentType, {"<!DOCTYPE r><r/>", "<!DOCTYPE r [<!ENTITY a 'b'>]><r/>"}},
        {Obstacle::prefix,
         {"<r xmlns='http://u'/>", "<r><s a='1' xml:lang='de'/></r>", "<r xmlns:a='u'/>", "<r xmlns=''/>"}},
        {Obstacle::limit,
         {"<r>" + million + million + "</r>", "<r a='" + million + "' b='" + million + "'/>",
          "<r><!--" + million + million + "--></r>"}},
        {Obstacle::attribute, {"<r a='&#x10001;'/>", "<r a='1' b='&#xD7FF;&#x10001;'/>"}},
        {Obstacle::error,
         {"", "<r", "<r>", "<r a='\xEF\xBF\xBF'/>", "<r a='1' a='2'/>", "<r a='&no;'/>", "<r/>x", "<r></s>",
          "<r a='\xE4'/>", "<a:b/>", "<:r/>", "<?xml version='1.1'?><r/>"}}};
    const TempFolder folder;
    const std::string file = folder / "file.xml";
    for (const auto& [obstacle, group] : documents) {
        for (const std::string& document : group) {
            writeBytes(file, document);
            const detail::PlainDocument plain = parsePlain(file);
            EXPECT_EQ(plain.obstacle, obstacle) << document.substr(0, 100);
            EXPECT_EQ(plain.root != nullptr, plain.obstacle == Obstacle::none) << document.substr(0, 100);
            EXPECT_FALSE(!plain.root && project::metadata::readPlainBytes(document)) << document.substr(0, 100);
            EXPECT_TRUE(!plain.root || render(*plain.root) == readByOracle(file, false)) << document.substr(0, 100);
        }
    }
    std::string deep;
    for (int depth = 0; depth <= 200; ++depth)
        deep = "<a>" + deep + "</a>";
    std::string names = "<r>";
    for (int i = 0; i < 100'000; ++i)
        names += "<name.of.element" + std::to_string(i) + "/>";
    for (const std::string& document : {deep, names + "</r>"}) {
        writeBytes(file, document);
        EXPECT_EQ(parsePlain(file).obstacle, Obstacle::limit) << document.substr(0, 100);
    }
}

TEST(XmlDialectTest, everyValueIsWrittenAsTheTextWriterWritesIt) {
    MetadataNodeSpecification tree(u"\u00E4");
    for (unsigned unit = 0; unit < 0x10000; unit += 16) {
        MetadataNode& node = tree.createChildNode(unit % 64 == 0 ? u"n" : u"\uD55C");
        MetadataNode& inner = unit % 80 == 0 ? node.createChildNode() : node;
        for (unsigned offset = 0; offset < 16; ++offset) {
            const auto value = static_cast<char16_t>(unit + offset);
            const std::u16string key{u'k', static_cast<char16_t>(u'a' + offset)};
            for (const std::u16string& text : {std::u16string{value}, u"a" + std::u16string{value, value} + u"<\u00E4",
                                               std::u16string{u'\xD83D', value, u'b'}}) {
                if (isValidAttribute(text))
                    inner.put(key + (text.size() > 1 ? u"\u00E4" : u""), text);
            }
        }
    }
    const TempFolder folder;
    writeToFile(tree, folder.path() / u"file.xml", false);
    EXPECT_EQ(readBytes(folder / "file.xml"), writeByTextWriter(tree));
}
