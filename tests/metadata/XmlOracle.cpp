#include "tests/metadata/XmlOracle.hpp"

#include <deque>
#include <fstream>
#include <map>
#include <memory>
#include <stdexcept>
#include <vector>

#include <libxml/tree.h>
#include <libxml/xmlreader.h>

#include "project/metadata/MetadataErrors.hpp"
#include "project/metadata/MetadataXml.hpp"
#include "tests/metadata/Helpers.hpp"

namespace test {

namespace {

struct Node {
    std::u16string name;
    std::map<std::u16string, std::u16string> attributes;
    std::deque<Node> children;
};

/// Other than the library, libxml2 prints by itself.
struct Silence {
    Silence() {
        xmlSetGenericErrorFunc(nullptr, print);
        xmlSetStructuredErrorFunc(nullptr, [](void* /*context*/, auto* /*error*/) {});
    }
    ~Silence() {
        xmlSetGenericErrorFunc(nullptr, nullptr);
        xmlSetStructuredErrorFunc(nullptr, nullptr);
    }
    static void print(void* /*context*/, const char* /*format*/, ...) {}
};

struct Refusal {
    std::u16string words;
};

int readCallback(void* context, char* buffer, int size) {
    auto& stream = *static_cast<std::ifstream*>(context);
    stream.sync();
    stream.read(buffer, size);
    return stream.good() || stream.eof() ? static_cast<int>(stream.gcount()) : -1;
}

int closeCallback(void* context) {
    static_cast<std::ifstream*>(context)->close();
    return 0;
}

std::u16string toUtf16(const xmlChar* text) {
    std::u16string result;
    while (text && *text) {
        int length = 4;
        const auto codePoint = static_cast<char32_t>(xmlGetUTF8Char(text, &length));
        text += length;
        if (codePoint < 0x10000)
            result += static_cast<char16_t>(codePoint);
        else
            result += {static_cast<char16_t>(0xD7C0 + (codePoint >> 10)),
                       static_cast<char16_t>(0xDC00 + (codePoint & 0x3FF))};
    }
    return result;
}

/// Of what UTF-8 can hold: no surrogate is without its partner.
bool isGoodValue(const std::u16string& value) {
    for (std::size_t i = 0; i < value.size(); ++i) {
        const char16_t unit = value[i];
        const char16_t next = i + 1 < value.size() ? value[i + 1] : u'\0';
        const bool isHigh = unit > 0xD800 && unit < 0xDBFF;
        const bool isLow = unit > 0xDC00 && unit < 0xDFFF;
        if (isHigh && next > 0xDC00 && next < 0xDFFF)
            ++i;
        else if (isHigh || isLow || unit > 0xFFFD || (unit < 0x20 && unit != 9 && unit != 10 && unit != 13))
            return false;
    }
    return true;
}

void put(Node& node, const xmlChar* name, const xmlChar* value) {
    const std::u16string key = toUtf16(name);
    const std::u16string text = toUtf16(value);
    if (xmlValidateName(name, 1) != 0)
        throw Refusal{u"refused key " + key};
    if (!isGoodValue(text))
        throw Refusal{u"refused value " + text};
    node.attributes[key] = text;
}

std::u16string show(const Node& node) {
    std::u16string text = node.name;
    for (const auto& [key, value] : node.attributes)
        text += u"{" + key + u"=" + value + u"}";
    for (const Node& child : node.children)
        text += u"[" + show(child) + u"]";
    return text;
}

}  // namespace

std::u16string readByOracle(const std::string& file, bool isRootOnly) try {
    const Silence silence;
    constexpr int quiet = 96;
    std::ifstream stream(file, std::ios::binary);
    const bool isOpen = stream.good();
    const std::unique_ptr<xmlTextReader, decltype(&xmlFreeTextReader)> owner(
        xmlReaderForIO(readCallback, closeCallback, &stream, nullptr, nullptr, quiet), xmlFreeTextReader);
    xmlTextReader* const reader = owner.get();
    if (!isOpen || !reader)
        throw Refusal{u"unreadable"};
    std::unique_ptr<Node> root;
    std::vector<Node*> open;
    int result = 0;
    while ((result = xmlTextReaderRead(reader)) == 1) {
        const int type = xmlTextReaderNodeType(reader);
        if (type == 15 && !open.empty())
            open.pop_back();
        if (type != 1)
            continue;
        Node node{toUtf16(xmlTextReaderConstName(reader)), {}, {}};
        Node& added = root ? open.back()->children.emplace_back(std::move(node))
                           : *(root = std::make_unique<Node>(std::move(node)));
        if (xmlTextReaderIsEmptyElement(reader) == 0)
            open.push_back(&added);
        while (xmlTextReaderMoveToNextAttribute(reader) == 1)
            put(added, xmlTextReaderConstName(reader), xmlTextReaderConstValue(reader));
        if (isRootOnly)
            return show(*root);
    }
    if (result != 0)
        throw Refusal{u"unreadable"};
    return show(*root);
} catch (const Refusal& refusal) {
    return refusal.words;
}

bool holdsMoreThanElements(const std::string& file) {
    const Silence silence;
    const std::unique_ptr<xmlDoc, decltype(&xmlFreeDoc)> document(xmlReadFile(file.c_str(), nullptr, 0), xmlFreeDoc);
    if (!document)
        throw std::runtime_error("no XML: " + file);
    std::vector<xmlNode*> level{document->children};
    while (!level.empty()) {
        xmlNode* const first = level.back();
        level.pop_back();
        for (xmlNode* node = first; node; node = node->next) {
            const bool isBlank = node->type == XML_TEXT_NODE && xmlIsBlankNode(node) != 0;
            if (node->type != XML_ELEMENT_NODE && !isBlank)
                return true;
            if (node->type == XML_ELEMENT_NODE)
                level.push_back(node->children);
        }
    }
    return false;
}

std::u16string readByLibrary(const std::string& file, bool isRootOnly) {
    namespace metadata = project::metadata;
    const host::Path path = host::Path::fromAccessName(file);
    try {
        return render(isRootOnly ? *metadata::readRootFromFile(path) : *metadata::readFromFile(path));
    } catch (const metadata::MetadataReadFailure& error) {
        return argumentsOf(error).back().empty() ? u"unreadable" : u"refused: " + argumentsOf(error).back();
    } catch (const metadata::PutMetadataKeyFailure& error) {
        return u"refused key " + argumentsOf(error).front();
    } catch (const metadata::PutMetadataValueFailure& error) {
        return u"refused value " + argumentsOf(error).front();
    }
}

}  // namespace test
