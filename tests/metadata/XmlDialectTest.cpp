/// All that XML allows in a file, and much that it does not: read as libxml2's text reader reads it, and written as its
/// text writer writes it.
#include <libxml/xmlreader.h>
#include <libxml/xmlwriter.h>

#include <cstdlib>

#include "host/XmlText.hpp"
#include "project/metadata/AttributeRules.hpp"
#include "project/metadata/MetadataNodeSpecification.hpp"
#include "project/metadata/MetadataXml.hpp"
#include "tests/metadata/Helpers.hpp"

using namespace project::metadata;
using namespace test;

namespace {

std::u16string currentName(xmlTextReader* reader) {
    return host::XmlText::toUtf16(xmlTextReaderConstName(reader));
}

/// The tree in `bytes`, attribute by attribute from a text reader.
/// @throws MetadataReadFailure if the reader finds an error
std::u16string readByTextReader(const std::string& bytes) {
    const std::unique_ptr<xmlTextReader, decltype(&xmlFreeTextReader)> reader(
        xmlReaderForMemory(bytes.data(), static_cast<int>(bytes.size()), nullptr, nullptr,
                           XML_PARSE_NOERROR | XML_PARSE_NOWARNING),
        xmlFreeTextReader);
    std::unique_ptr<MetadataNode> root;
    std::vector<MetadataNode*> open;
    int result = 0;
    while (reader && (result = xmlTextReaderRead(reader.get())) == 1) {
        if (xmlTextReaderNodeType(reader.get()) == XML_READER_TYPE_END_ELEMENT)
            open.pop_back();
        if (xmlTextReaderNodeType(reader.get()) != XML_READER_TYPE_ELEMENT)
            continue;
        if (!root)
            root = std::make_unique<MetadataNodeSpecification>(currentName(reader.get()));
        MetadataNode& node = open.empty() ? *root : open.back()->createChildNode(currentName(reader.get()));
        if (xmlTextReaderIsEmptyElement(reader.get()) == 0)
            open.push_back(&node);
        while (xmlTextReaderMoveToNextAttribute(reader.get()) == 1)
            node.put(currentName(reader.get()), host::XmlText::toUtf16(xmlTextReaderConstValue(reader.get())));
    }
    if (!reader || result != 0)
        raise<MetadataReadFailure>(u"", u"");
    return render(*root);
}

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

std::string toUtf16Bytes(std::u16string_view text, bool bigEndian) {
    std::string bytes;
    for (const char16_t unit : text) {
        const char high = static_cast<char>(unit >> 8);
        const char low = static_cast<char>(unit & 0xFF);
        bytes += {bigEndian ? high : low, bigEndian ? low : high};
    }
    return bytes;
}

std::string nested(int depth) {
    std::string text;
    for (int i = 0; i < depth; ++i)
        text += "<a b='c'>";
    for (int i = 0; i < depth; ++i)
        text += "</a>";
    return text;
}

/// What `read` gives, or the name of its error.
template <class Read>
std::u16string outcome(const Read& read) {
    try {
        return read();
    } catch (const MetadataReadFailure&) {
        return u"not well-formed";
    } catch (const PutMetadataKeyFailure&) {
        return u"refused key";
    } catch (const PutMetadataValueFailure&) {
        return u"refused value";
    }
}

}  // namespace

TEST(XmlDialectTest, everyDocumentIsReadAsTheTextReaderReadsIt) {
    const std::string declared =
        "<!DOCTYPE r [<!ENTITY e 'an &#38; &quot;entity&quot;'><!ENTITY f '&e; twice &e;'>"
        "<!ENTITY t '<in a=\"&e;\"/>text'><!ENTITY bad '<in>'><!ENTITY loop '&loop;'>"
        "<!ENTITY % p '<!ENTITY q \"by parameter\">'> %p; <!ENTITY x SYSTEM '/etc/hostname'>"
        "<!ELEMENT r ANY><!ATTLIST r d CDATA 'default &e;' t NMTOKENS #IMPLIED i ID #IMPLIED>]>";
    const std::string odd = declared +
                            "<!-- c --><?p i?><r a='&e;|&f;|&q;|&amp;&lt;&#38;&#60;&#65;&#xE4;&#10;' t=' x  y '"
                            " i='id'>text &e; &t;<![CDATA[<no/>]]><p:c xmlns:p='u' xmlns='' p:k='v' k='w'>"
                            "<?pi?></p:c>\n<d\n\te = \"1\r\n2\t3\"\n/>&x;</r><!-- end -->\n";
    std::vector<std::string> documents = {
        "",
        " ",
        "x",
        "<r/>",
        "\xEF\xBB\xBF<r a='\xC3\xA4'/>",
        " <?xml version='1.0'?><r/>",
        "<r/><r/>",
        "<r/>x",
        "<r>",
        "<r></s>",
        "<?xml version='1.1'?><r/>",
        "<?xml version='2.0'?><r/>",
        "<?xml version='1.0' encoding='no'?><r/>",
        "<?xml version='1.0' encoding='ISO-8859-1'?><r a='\xE4'/>",
        "<?xml version='1.0' encoding='UTF-16'?><r/>",
        "<?xml version='1.0' encoding='US-ASCII'?><r a='\xE4'/>",
        "<r a='\xE4'/>",
        "<r a='\xC3'/>",
        "<r a='\xED\xA0\x80'/>",
        "<r a='\x01'/>",
        "<r a='&#1;'/>",
        "<r a='&#xFFFE;'/>",
        "<r a='&#xD800;'/>",
        "<r a='&#x10001;'/>",
        "<r a='&#x10FC00;' b='&#x10000;'/>",
        "<r a='\xF0\x9F\x98\x80'/>",
        "<r a='1' a='2'/>",
        "<r a='<'/>",
        "<r a='&'/>",
        "<r a='&no;'/>",
        "<r>&no;</r>",
        "<?xml version='1.0' standalone='yes'?><r>&no;</r>",
        "<r a=1/>",
        "<r a/>",
        "<a:b/>",
        "<a:b c:d='e'/>",
        "<a:b:c/>",
        "<:a/>",
        "<r :a='1' b:='2'/>",
        "<r xmlns:p=''/>",
        "<r xmlns=''/>",
        "<r xmlns='u'><s/></r>",
        "<r xmlns:xml='http://www.w3.org/XML/1998/namespace'/>",
        "<r xmlns:xmlns='u'/>",
        "<r xmlns:a='u' xmlns:b='u' a:k='1' b:k='2'/>",
        "<r xmlns:a='1' xmlns:a='2'/>",
        "<p:r xmlns:p='u' p:a='1' a='2'/>",
        "<r xml:lang='de' xml:space='preserve'> <s xml:lang='en'/> </r>",
        "<r xmlns:a='a b'/>",
        "<r \xC8\xA0='key of the fifth edition'/>",
        "<r a='1' \xC8\xA0='2' c='&#x10001;'/>",
        "<r a='&#x10001;' \xC8\xA0='2'/>",
        declared + "<r b='&bad;'/>",
        declared + "<r>&bad;</r>",
        declared + "<r b='&loop;'/>",
        declared + "<r>&loop;</r>",
        declared + "<r b='&x;'/>",
        declared + "<r>&x;&t;&t;</r>",
        declared + "<s t=' a  b '/>",
        declared + "<r><r d='own'/></r>",
        "<!DOCTYPE r SYSTEM 'no.dtd'><r>&no;</r>",
        "<!DOCTYPE r SYSTEM 'no.dtd'><r a='&no;'/>",
        "<!DOCTYPE r [<!ENTITY a 'b'",
        nested(257),
        nested(258),
        "<r a='" + std::string(100'000, 'x') + "'>" + std::string(100'000, '\n') + "<s/></r>",
        "<r a='" + std::string(11'000'000, 'x') + "'/>"};
    for (const bool bigEndian : {false, true}) {
        for (const std::u16string text : {u"\uFEFF<r a='\u00E4\U0001F600'/>", u"<?xml version='1.0'?><r/>",
                                          u"\uFEFF<?xml version='1.0' encoding='UTF-16'?><r b='&amp;'><s/></r>"})
            documents.push_back(toUtf16Bytes(text, bigEndian));
    }
    // Once more with blocks ending between any two bytes.
    for (std::size_t size = 1; size <= odd.size(); ++size)
        documents.push_back(odd.substr(0, size));
    for (std::size_t size = 65'530; size < 65'540; ++size)
        documents.push_back("<r>" + std::string(size, ' ') + "<s a='\xC3\xA4&amp;\xF0\x9F\x98\x80'/></r>");

    const TempFolder folder;
    std::size_t wellFormed = 0;
    for (const std::string& document : documents) {
        writeBytes(folder / "file.xml", document);
        const std::u16string expected = outcome([&] { return readByTextReader(document); });
        EXPECT_EQ(outcome([&] { return render(*readFromFile(folder.path() / u"file.xml")); }), expected)
            << document.substr(0, 300);
        wellFormed += expected.find(u' ') == std::u16string::npos || expected.find(u'{') != std::u16string::npos;
    }
    EXPECT_GT(wellFormed, 40U) << "too many of the documents are broken";
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
