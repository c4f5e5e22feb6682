#include "project/metadata/detail/TextReader.hpp"

#include <algorithm>
#include <cstddef>
#include <new>
#include <string>
#include <string_view>
#include <unordered_map>

#include <libxml/entities.h>
#include <libxml/xmlreader.h>

#include "host/Text.hpp"
#include "host/XmlText.hpp"
#include "project/metadata/AttributeRules.hpp"
#include "project/metadata/MetadataErrors.hpp"
#include "project/metadata/detail/TreeBuilder.hpp"

namespace project::metadata::detail {

namespace {

/// The file, for the callbacks of libxml2.
struct Source {
    host::InputFileStream& stream;
    std::size_t bytesRead = 0;
};

int readBlock(void* context, char* buffer, int size) {
    auto& [stream, bytesRead] = *static_cast<Source*>(context);
    stream.sync();
    stream.read(buffer, size);
    // The end of the file is no error of reading; what cannot be read is.
    if (!stream.good() && !stream.eof())
        return -1;
    bytesRead += static_cast<std::size_t>(stream.gcount());
    return static_cast<int>(stream.gcount());
}

int closeFile(void* context) {
    static_cast<Source*>(context)->stream.close();  // sets the fail state itself if closing fails
    return 0;
}

std::string_view view(const xmlChar* text) {
    return text ? reinterpret_cast<const char*>(text) : std::string_view();
}

/// How much text entities stand for. libxml2 is asked for a text only when that is known: it follows entities wherever
/// they lead, also to themselves.
class EntitySizes {
public:
    /// The size of larger texts, and of those without an end.
    static constexpr std::size_t maxSize = std::size_t{1} << 40;

    /// What the entities in the value of `attribute` stand for, in bytes.
    std::size_t getExpansion(const xmlNode& attribute) {
        std::size_t size = 0;
        for (const xmlNode* part = attribute.children; part; part = part->next) {
            if (part->type == XML_ENTITY_REF_NODE)
                size = std::min(size + getSizeOf(*part, 0), maxSize);
        }
        return size;
    }

private:
    /// Of what a reference stands for, which is `depth` entities deep in others.
    std::size_t getSizeOf(const xmlNode& reference, int depth) {
        constexpr int maxDepth = 64;  // the parser stops earlier
        const xmlEntity* const entity = xmlGetDocEntity(reference.doc, reference.name);
        if (!entity || !entity->children)
            return 0;
        if (depth > maxDepth)
            return maxSize;
        // As long as it is being found out, an entity that leads back to here is a circle.
        const bool isNew = sizes_.try_emplace(entity, maxSize).second;
        if (isNew)
            sizes_[entity] = getSizeBelow(entity->children, depth + 1);
        return sizes_[entity];
    }

    std::size_t getSizeBelow(const xmlNode* node, int depth) {
        std::size_t size = 0;
        for (; node; node = node->next) {
            std::size_t part = 0;
            if (node->type == XML_ENTITY_REF_NODE)
                part = getSizeOf(*node, depth);
            else if (node->type == XML_ELEMENT_NODE)
                part = getSizeBelow(node->children, depth);
            else
                part = view(node->content).size();
            size = std::min(size + part, maxSize);
        }
        return size;
    }

    std::unordered_map<const xmlEntity*, std::size_t> sizes_;
};

/// Whether a document type gives one kind of element so many attributes by default that libxml2, which compares each
/// with each whenever such an element comes, takes much longer than for others. None of them gets into a tree.
bool hasTooManyDefaults(const xmlNode& documentType) {
    constexpr std::size_t maxCount = 100;
    std::unordered_map<std::string_view, std::size_t> counts;
    for (const xmlNode* node = documentType.children; node; node = node->next) {
        if (node->type != XML_ATTRIBUTE_DECL)
            continue;
        const auto& declaration = *reinterpret_cast<const xmlAttribute*>(node);
        if (declaration.defaultValue && ++counts[view(declaration.elem)] > maxCount)
            return true;
    }
    return false;
}

/// What is neither element nor attribute, in words; null for what belongs to elements.
const char16_t* nameOfRest(int type) {
    switch (type) {
        case XML_READER_TYPE_TEXT:
            return u"text";
        case XML_READER_TYPE_CDATA:
            return u"a CDATA section";
        case XML_READER_TYPE_ENTITY_REFERENCE:
            return u"a reference to an entity";
        case XML_READER_TYPE_PROCESSING_INSTRUCTION:
            return u"a processing instruction";
        case XML_READER_TYPE_COMMENT:
            return u"a comment";
        case XML_READER_TYPE_DOCUMENT_TYPE:
            return u"a document type";
        default:
            return nullptr;
    }
}

/// The line in which what is said in `node` begins; 0 if that is not certain, as libxml2 does not note it of all kinds.
/// @param lastLine up to which the parser has read, which may be far ahead
long findLine(const xmlNode& node, long lastLine) {
    constexpr long tooLarge = 65535;       // a node has no room for more
    constexpr std::size_t longText = 300;  // may come in parts, of which the first has noted its line
    const bool isText = node.type == XML_TEXT_NODE;
    const long end = xmlGetLineNo(&node);
    if (!isText && node.type != XML_COMMENT_NODE && node.type != XML_PI_NODE) {
        const long first = std::max(end, 1L);  // `end` is that of what stands before it, or around it
        return first == lastLine ? first : 0;
    }
    std::string_view content = view(node.content);
    if (end <= 0 || end >= tooLarge || (isText && content.size() >= longText))
        return 0;
    content.remove_prefix(std::min(content.find_first_not_of(" \t\r\n"), content.size()));
    return end - std::count(content.begin(), content.end(), '\n');
}

class TextReader {
public:
    TextReader(host::InputFileStream& stream, const host::Path& file, LeftOut* leftOut)
        : source_{stream}, file_(file), leftOut_(leftOut) {}

    std::unique_ptr<MetadataNode> read(Extent extent);

private:
    void noteRest(int type);
    void addNode();
    void addAttribute();
    bool isRefused(const xmlNode& attribute, std::string_view value);
    const xmlChar* getName() const;
    [[noreturn]] void fail(const std::u16string& cause) const { raise<MetadataReadFailure>(file_.text(), cause); }

    Source source_;
    const host::Path& file_;
    LeftOut* const leftOut_;
    std::unique_ptr<xmlTextReader, decltype(&xmlFreeTextReader)> reader_{nullptr, xmlFreeTextReader};
    ElementKinds kinds_;
    TreeBuilder tree_{kinds_};
    EntitySizes entitySizes_;
    std::size_t expansion_ = 0;  ///< what the entities in all values so far stand for
};

std::unique_ptr<MetadataNode> TextReader::read(Extent extent) {
    // Later the stream fails at the end of a small file as well: libxml2 may read ahead at once.
    if (source_.stream.fail())
        fail(getCauseMessage());
    reader_.reset(
        xmlReaderForIO(readBlock, closeFile, &source_, nullptr, nullptr, XML_PARSE_NOERROR | XML_PARSE_NOWARNING));
    if (!reader_)
        fail(getCauseMessage());
    int result = 0;
    while ((result = xmlTextReaderRead(reader_.get())) == 1) {
        const int type = xmlTextReaderNodeType(reader_.get());
        if (leftOut_ && leftOut_->passedOver.empty())
            noteRest(type);
        if (type == XML_READER_TYPE_ELEMENT)
            addNode();
        else if (type == XML_READER_TYPE_END_ELEMENT && tree_.getDepth() > 0)
            tree_.endElement();
        else if (type == XML_READER_TYPE_DOCUMENT_TYPE && hasTooManyDefaults(*xmlTextReaderCurrentNode(reader_.get())))
            fail(u"its document type gives more than 100 attributes to one kind of element");
        if (extent == Extent::rootOnly && tree_.hasRoot())
            return tree_.takeRoot();
    }
    if (result != 0 || !tree_.hasRoot())
        fail(getCauseMessage());
    return tree_.takeRoot();
}

void TextReader::noteRest(int type) {
    if (const char16_t* const name = nameOfRest(type)) {
        const long line =
            findLine(*xmlTextReaderCurrentNode(reader_.get()), xmlTextReaderGetParserLineNumber(reader_.get()));
        leftOut_->passedOver = name + (line > 0 ? u" in line " + host::fromUtf8(std::to_string(line)) : u"");
    }
}

void TextReader::addNode() {
    if (tree_.getDepth() == TreeBuilder::maxDepth)
        fail(u"its elements are nested more than 256 levels deep");
    const bool isEmpty = xmlTextReaderIsEmptyElement(reader_.get()) != 0;
    tree_.startElement(getName());
    while (xmlTextReaderMoveToNextAttribute(reader_.get()) == 1)
        addAttribute();
    tree_.endAttributes();
    if (isEmpty)
        tree_.endElement();
}

void TextReader::addAttribute() {
    constexpr std::size_t maxFactor = 16;
    constexpr std::size_t alwaysAllowed = 1024 * 1024;
    const xmlNode* const attribute = xmlTextReaderCurrentNode(reader_.get());
    std::size_t expansion = 0;
    // What stands here for the declaration of a namespace is of another type, and never has references.
    if (attribute->type == XML_ATTRIBUTE_NODE)
        expansion = entitySizes_.getExpansion(*attribute);
    expansion_ += expansion;
    if (expansion_ > std::max(alwaysAllowed, maxFactor * source_.bytesRead)) {
        tree_.endAttributes();
        fail(u"its entities stand for more than 1 MB, and for more than 16 times as much as was read up to there");
    }
    const xmlChar* const value = xmlTextReaderConstValue(reader_.get());
    if (expansion > 0 && view(value).empty()) {
        tree_.endAttributes();
        fail(u"libxml2 cannot expand its entities");
    }
    if (!leftOut_ || !isRefused(*attribute, view(value)))
        tree_.addAttribute(getName(), view(value));
}

/// The name of what the reader is at. That libxml2 has no room for a name with a prefix it tells only by having none.
const xmlChar* TextReader::getName() const {
    const xmlChar* const name = xmlTextReaderConstName(reader_.get());
    if (!name)
        throw std::bad_alloc();
    return name;
}

/// Takes `attribute` down if a node refuses it.
bool TextReader::isRefused(const xmlNode& attribute, std::string_view value) {
    const std::u16string key = host::XmlText::toUtf16(getName());
    const std::u16string text = host::fromUtf8(value);
    const bool isKeyRefused = !isValidKey(key);
    if (!isKeyRefused && isValidAttribute(text))
        return false;
    // A declaration of a namespace does not know where it stands.
    const bool hasParent = attribute.type == XML_ATTRIBUTE_NODE;
    const int line =
        hasParent ? static_cast<int>(xmlGetLineNo(attribute.parent)) : xmlTextReaderGetParserLineNumber(reader_.get());
    leftOut_->refused.push_back({&tree_.getOpenNode(), line, key, text, isKeyRefused});
    return true;
}

}  // namespace

std::unique_ptr<MetadataNode> readWithTextReader(host::InputFileStream& stream, const host::Path& file, Extent extent,
                                                 LeftOut* leftOut) {
    return TextReader(stream, file, leftOut).read(extent);
}

}  // namespace project::metadata::detail
