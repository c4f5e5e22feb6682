#include "project/metadata/detail/TreeParser.hpp"

#include <algorithm>
#include <iterator>
#include <new>
#include <optional>
#include <utility>

#include <libxml/SAX2.h>
#include <libxml/parserInternals.h>
#include <libxml/tree.h>

#include "host/Text.hpp"
#include "host/XmlText.hpp"
#include "project/metadata/AttributeRules.hpp"
#include "project/metadata/MetadataErrors.hpp"

namespace project::metadata::detail {

namespace {

const char* toChars(const xmlChar* text) {
    return reinterpret_cast<const char*>(text);
}

const xmlChar* toXmlChars(const char* text) {
    return reinterpret_cast<const xmlChar*>(text);
}

void appendName(std::string& names, const xmlChar* prefix, const xmlChar* name) {
    if (prefix)
        names.append(toChars(prefix)).append(1, ':');
    names.append(toChars(name));
}

std::u16string getName(const xmlChar* prefix, const xmlChar* name) {
    std::string text;
    appendName(text, prefix, name);
    return host::fromUtf8(text);
}

/// Whether the forms that this thread has kept are gone, while what is destroyed after them may still read files.
thread_local bool areFormsGone = false;

/// The forms of nodes that were read on this thread last.
struct RecentForms : std::vector<std::weak_ptr<const NodeForm>> {
    ~RecentForms() { areFormsGone = true; }
};

/// A form like `form` that nodes of other files read on this thread have, or it itself.
std::shared_ptr<const NodeForm> shareForm(NodeForm form) {
    if (areFormsGone)
        return std::make_shared<const NodeForm>(std::move(form));
    thread_local RecentForms recent;
    constexpr std::size_t maxRecent = 32;
    for (const auto& candidate : recent) {
        const auto other = candidate.lock();
        if (other && other->name == form.name && other->keys == form.keys)
            return other;
    }
    const auto shared = std::make_shared<const NodeForm>(std::move(form));
    if (recent.size() == maxRecent)
        recent.erase(recent.begin());
    recent.emplace_back(shared);
    return shared;
}

/// `text` with "&" for each "&#38;"; nothing if there are other references in it.
std::optional<std::string> replaceAmpersands(std::string_view text) {
    constexpr std::string_view reference = "&#38;";
    std::string plain;
    for (;;) {
        const std::size_t found = text.find('&');
        plain += text.substr(0, found);
        if (found == std::string_view::npos)
            return plain;
        if (text.substr(found, reference.size()) != reference)
            return std::nullopt;
        plain += '&';
        text.remove_prefix(found + reference.size());
    }
}

}  // namespace

TreeParser::TreeParser(Extent extent) : extent_(extent) {
    // What the default handlers do for a document type declaration is needed; nodes of libxml2 are not.
    xmlSAXHandler handler{};
    xmlSAXVersion(&handler, 2);
    handler.startElementNs = onStartElement;
    handler.endElementNs = onEndElement;
    handler.characters = nullptr;
    handler.ignorableWhitespace = nullptr;
    handler.cdataBlock = nullptr;
    handler.comment = nullptr;
    handler.processingInstruction = nullptr;
    handler.reference = nullptr;
    parser_ = xmlCreatePushParserCtxt(&handler, nullptr, nullptr, 0, nullptr);
    if (!parser_)
        throw std::bad_alloc();
    parser_->_private = this;
    xmlCtxtUseOptions(parser_, XML_PARSE_NOERROR | XML_PARSE_NOWARNING);
}

TreeParser::~TreeParser() {
    xmlFreeDoc(parser_->myDoc);
    xmlFreeParserCtxt(parser_);
}

bool TreeParser::parse(std::string_view block) {
    parseBlock(block, false);
    return parser_->wellFormed != 0 && !isDone();
}

std::unique_ptr<MetadataNode> TreeParser::finish() {
    if (!isDone())
        parseBlock({}, true);
    return parser_->wellFormed != 0 ? std::move(root_) : nullptr;
}

void TreeParser::parseBlock(std::string_view block, bool isLast) {
    xmlParseChunk(parser_, block.data(), static_cast<int>(block.size()), isLast ? 1 : 0);
    if (failure_)
        std::rethrow_exception(failure_);
}

/// Runs `step` for the object that `context` belongs to.
template <class Step>
void TreeParser::run(void* context, const Step& step) {
    auto* const parser = static_cast<xmlParserCtxt*>(context);
    TreeParser& self = *static_cast<TreeParser*>(parser->_private);
    // The content of an entity is parsed on its own to see whether it is well-formed. It is no part of the tree.
    if (parser != self.parser_)
        return;
    try {
        step(self);
    } catch (...) {
        self.failure_ = std::current_exception();
        xmlStopParser(parser);
    }
}

void TreeParser::onStartElement(void* context, const xmlChar* name, const xmlChar* prefix, const xmlChar* /*uri*/,
                                int namespaceCount, const xmlChar** namespaces, int attributeCount,
                                int /*defaultedCount*/, const xmlChar** attributes) {
    run(context, [&](TreeParser& self) {
        self.attributes_.clear();
        for (int i = 0; i < namespaceCount; ++i, namespaces += 2) {
            const xmlChar* const declared = namespaces[0];
            self.attributes_.push_back({declared ? toXmlChars("xmlns") : nullptr,
                                        declared ? declared : toXmlChars("xmlns"), toChars(namespaces[1])});
        }
        // Each attribute is five pointers: name, prefix, URI, and where the value begins and ends.
        for (int i = 0; i < attributeCount; ++i, attributes += 5) {
            const auto length = static_cast<std::size_t>(attributes[4] - attributes[3]);
            self.attributes_.push_back({attributes[1], attributes[0], {toChars(attributes[3]), length}});
        }
        self.startElement(prefix, name);
        if (self.isDone())
            xmlStopParser(self.parser_);
    });
}

void TreeParser::onEndElement(void* context, const xmlChar* /*name*/, const xmlChar* /*prefix*/,
                              const xmlChar* /*uri*/) {
    run(context, [](TreeParser& self) { self.endElement(); });
}

void TreeParser::startElement(const xmlChar* prefix, const xmlChar* name) {
    // The limit that libxml2 has for its own trees. Trees are walked and destroyed by recursion.
    if (open_.size() > xmlParserMaxDepth) {
        parser_->wellFormed = 0;
        xmlStopParser(parser_);
        return;
    }
    MetadataNodeSpecification& node = addNode();
    open_.push_back({&node, children_.size()});
    const Kind& kind = getKind(prefix, name);
    node.form_ = kind.form;
    if (!kind.isValid) {
        // One of these fails, after those before it have been looked at.
        for (const Attribute& attribute : attributes_)
            node.put(getName(attribute.prefix, attribute.name), getValue(attribute.value));
        return;
    }
    if (attributes_.empty())
        return;
    node.values_ = Values::make(attributes_.size(), getBlock());
    auto place = kind.places.begin();
    for (const Attribute& attribute : attributes_)
        node.values_->begin()[*place++] = getValue(attribute.value);
}

void TreeParser::endElement() {
    const auto [node, firstChild] = open_.back();
    open_.pop_back();
    const auto first = children_.begin() + static_cast<std::ptrdiff_t>(firstChild);
    node->children_.assign(std::make_move_iterator(first), std::make_move_iterator(children_.end()));
    children_.erase(first, children_.end());
}

MetadataNodeSpecification& TreeParser::addNode() {
    if (!root_) {
        root_ = std::make_unique<MetadataNodeSpecification>();
        return *root_;
    }
    auto node = std::allocate_shared<MetadataNodeSpecification>(BlockAllocator<MetadataNodeSpecification>(getBlock()));
    MetadataNodeSpecification& added = *node;
    children_.push_back(std::move(node));
    return added;
}

/// Null for the first nodes of a file: small files are often kept in great numbers, and only in part.
MemoryBlock* TreeParser::getBlock() {
    constexpr std::size_t heapParts = 32;
    constexpr std::size_t firstSize = 4 * 1024;
    constexpr std::size_t maxSize = 32 * 1024;
    if (++partCount_ <= heapParts)
        return nullptr;
    if (!block_ || block_->isFull())
        block_.reset(MemoryBlock::make(block_ ? std::min(2 * block_->getSize(), maxSize) : firstSize));
    return block_.get();
}

/// The kind of the current element.
const TreeParser::Kind& TreeParser::getKind(const xmlChar* prefix, const xmlChar* name) {
    names_.assign({prefix, name});
    for (const Attribute& attribute : attributes_)
        names_.insert(names_.end(), {attribute.prefix, attribute.name});
    const auto [entry, isNew] = kinds_.try_emplace(names_);
    Kind& kind = entry->second;
    if (!isNew)
        return kind;

    std::vector<std::u16string> keys;
    for (const Attribute& attribute : attributes_)
        keys.push_back(getName(attribute.prefix, attribute.name));
    kind.isValid = std::all_of(keys.begin(), keys.end(), isValidKey);
    NodeForm form{getName(prefix, name), {}};
    if (kind.isValid) {
        form.keys = keys;
        std::sort(form.keys.begin(), form.keys.end());
    }
    for (const std::u16string& key : keys) {
        const auto place = std::lower_bound(form.keys.begin(), form.keys.end(), key);
        kind.places.push_back(static_cast<std::size_t>(place - form.keys.begin()));
    }
    kind.form = shareForm(std::move(form));
    return kind;
}

/// The value of an attribute that the parser hands over as `text`: "&" is still "&#38;" in it, and references to the
/// entities that the document declares are as they stand.
std::u16string TreeParser::getValue(std::string_view text) const {
    const auto isPlain = [](char c) { return c >= 0x20 && c < 0x7F && c != '&'; };
    if (std::all_of(text.begin(), text.end(), isPlain))
        return {text.begin(), text.end()};
    std::u16string value;
    if (const auto plain = replaceAmpersands(text)) {
        value = host::fromUtf8(*plain);
    } else {
        xmlNode* const pieces =
            xmlStringLenGetNodeList(parser_->myDoc, toXmlChars(text.data()), static_cast<int>(text.size()));
        xmlChar* const joined = xmlNodeListGetString(parser_->myDoc, pieces, 1);
        xmlFreeNodeList(pieces);
        value = host::XmlText::toUtf16(joined);
        xmlFree(joined);
    }
    if (!isValidAttribute(value))
        raise<PutMetadataValueFailure>(value);
    return value;
}

}  // namespace project::metadata::detail
