#include "project/metadata/detail/PlainParser.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <exception>
#include <memory>
#include <new>
#include <string>
#include <utility>

#include <libxml/SAX2.h>
#include <libxml/dict.h>
#include <libxml/parser.h>
#include <libxml/parserInternals.h>

#include "project/exception/ProjectException.hpp"
#include "project/metadata/detail/TreeBuilder.hpp"

namespace project::metadata::detail {

namespace {

/// Whether the parser that this thread has kept is gone, while what is destroyed after it may still read files.
thread_local bool isSpareGone = false;

/// A parser of libxml2, with what has been found out about the names in its dictionary.
struct Parser {
    Parser() = default;
    ~Parser() { xmlFreeParserCtxt(context); }

    Parser(const Parser&) = delete;
    Parser& operator=(const Parser&) = delete;

    xmlParserCtxt* context = nullptr;
    ElementKinds kinds;
    std::string document;  ///< what is read, if it is read in one piece
};

/// How a parser is given what it reads. What is pushed block by block goes through a buffer, which costs small files
/// more than they do themselves.
enum class Feed { inBlocks, inOnePiece };

/// A parser to be used again: to make one takes as long as to read a small file.
struct SpareParser {
    ~SpareParser() { isSpareGone = true; }

    std::unique_ptr<Parser> parser;
};

/// Where this thread keeps one; null at its end.
std::unique_ptr<Parser>* findSpareParser() {
    if (isSpareGone)
        return nullptr;
    thread_local SpareParser spare;
    return &spare.parser;
}

/// The one that this thread has kept, or one without a context.
std::unique_ptr<Parser> takeParser(Feed feed) {
    std::unique_ptr<Parser>* const spare = findSpareParser();
    std::unique_ptr<Parser> parser = spare ? std::move(*spare) : nullptr;
    const bool isReady =
        parser && (feed == Feed::inOnePiece || xmlCtxtResetPush(parser->context, nullptr, 0, nullptr, nullptr) == 0);
    return isReady ? std::move(parser) : std::make_unique<Parser>();
}

class PlainParser {
public:
    PlainParser(Extent extent, Rest rest, Feed feed);
    ~PlainParser();

    PlainParser(const PlainParser&) = delete;
    PlainParser& operator=(const PlainParser&) = delete;

    PlainDocument parse(host::InputFileStream& stream);
    PlainDocument parse(std::string_view bytes);

private:
    void setRest(Rest rest);
    static void meetRest(void* context) {
        run(context, [](PlainParser& self) { self.giveUp(Obstacle::rest); });
    }
    void requireEncoding(std::string_view firstBlock);
    PlainDocument finish();
    void parseBlock(std::string_view block, bool isLast);
    void startElement(const xmlChar* name, const xmlChar** attributes, int attributeCount);
    void endElement();
    void giveUp(Obstacle obstacle);
    /// Whether only the root is wanted, and it does not end here.
    bool isInsideRoot() const { return extent_ == Extent::rootOnly && depth_ > 0; }
    bool goesOn() const { return obstacle_ == Obstacle::none && !failure_; }

    /// Takes `step` for the parser that libxml2 hands over as `context`.
    template <class Step>
    static void run(void* context, const Step& step);

    const Extent extent_;
    std::unique_ptr<Parser> owned_;
    xmlParserCtxt*& parser_ = owned_->context;
    TreeBuilder tree_{owned_->kinds};
    std::size_t depth_ = 0;          ///< how many elements are open
    std::size_t bytesSinceTag_ = 0;  ///< at least as many, to a block, as no tag has ended in
    Obstacle obstacle_ = Obstacle::none;
    std::exception_ptr failure_;  ///< libxml2 must not see exceptions
};

bool isBlank(const xmlChar* text, int size) {
    return std::all_of(text, text + size, [](xmlChar c) { return c == ' ' || c == '\n' || c == '\r' || c == '\t'; });
}

PlainParser::PlainParser(Extent extent, Rest rest, Feed feed) : extent_(extent), owned_(takeParser(feed)) {
    xmlSAXHandler handler{};
    handler.initialized = XML_SAX2_MAGIC;
    handler.startDocument = xmlSAX2StartDocument;
    handler.internalSubset = [](void* context, const xmlChar* /*name*/, const xmlChar* /*id*/,
                                const xmlChar* /*file*/) {
        run(context, [](PlainParser& self) { self.giveUp(Obstacle::documentType); });
    };
    handler.startElementNs = [](void* context, const xmlChar* name, const xmlChar* prefix, const xmlChar* /*uri*/,
                                int namespaceCount, const xmlChar** /*namespaces*/, int attributeCount,
                                int /*defaultedCount*/, const xmlChar** attributes) {
        run(context, [&](PlainParser& self) {
            if (prefix || namespaceCount > 0)
                self.giveUp(Obstacle::prefix);
            else
                self.startElement(name, attributes, attributeCount);
        });
    };
    handler.endElementNs = [](void* context, const xmlChar* /*name*/, const xmlChar* /*prefix*/,
                              const xmlChar* /*uri*/) { run(context, [](PlainParser& self) { self.endElement(); }); };
    handler.serror = [](void* context, auto* /*error*/) {
        run(context, [](PlainParser& self) { self.giveUp(Obstacle::error); });
    };
    if (!parser_)
        parser_ = xmlCreatePushParserCtxt(&handler, nullptr, nullptr, 0, nullptr);
    if (!parser_)
        throw std::bad_alloc();
    if (feed == Feed::inOnePiece)
        xmlCtxtReset(parser_);
    parser_->_private = this;
    setRest(rest);
    // References come as what they stand for. Without a document type there are only those that libxml2 knows itself.
    xmlCtxtUseOptions(parser_, XML_PARSE_NOENT);
}

void PlainParser::setRest(Rest rest) {
    xmlSAXHandler& handler = *parser_->sax;
    handler.characters = nullptr;
    handler.cdataBlock = nullptr;
    handler.comment = nullptr;
    handler.processingInstruction = nullptr;
    if (rest == Rest::isPassedOver)
        return;
    handler.characters = [](void* context, const xmlChar* text, int size) {
        if (!isBlank(text, size))
            meetRest(context);
    };
    handler.cdataBlock = [](void* context, const xmlChar* /*text*/, int /*size*/) { meetRest(context); };
    handler.comment = [](void* context, const xmlChar* /*text*/) { meetRest(context); };
    handler.processingInstruction = [](void* context, const xmlChar* /*target*/, const xmlChar* /*data*/) {
        meetRest(context);
    };
}

PlainParser::~PlainParser() {
    xmlFreeDoc(std::exchange(parser_->myDoc, nullptr));
    parser_->_private = nullptr;
    // With the names of the files that it has read, and their kinds.
    constexpr std::size_t maxBytes = 64 * 1024;
    constexpr std::size_t maxKinds = 256;
    const bool isSmall = xmlDictGetUsage(parser_->dict) <= maxBytes && owned_->kinds.size() <= maxKinds;
    std::unique_ptr<Parser>* const spare = goesOn() && isSmall ? findSpareParser() : nullptr;
    if (spare && !*spare)
        *spare = std::move(owned_);
}

PlainDocument PlainParser::parse(host::InputFileStream& stream) {
    std::array<char, 32 * 1024> block;
    bool isFirst = true;
    bool isEnough = false;
    while (goesOn() && !isEnough && stream.read(block.data(), block.size()).gcount() > 0) {
        const std::string_view bytes(block.data(), static_cast<std::size_t>(stream.gcount()));
        if (isFirst)
            requireEncoding(bytes);
        isFirst = false;
        // For the root alone the text reader looks at up to 512 bytes behind it, or at all if it is an empty element.
        const bool hadRoot = tree_.hasRoot();
        parseBlock(bytes, false);
        isEnough = hadRoot && isInsideRoot();
    }
    if (!isEnough) {
        if (!stream.eof())
            giveUp(Obstacle::error);
        parseBlock({}, true);
    }
    return finish();
}

PlainDocument PlainParser::parse(std::string_view bytes) {
    constexpr std::size_t maxBytes = 500'000;  // less than what parseBlock allows
    requireEncoding(bytes.empty() ? std::string_view("\0", 1) : bytes);
    if (bytes.size() > maxBytes)
        giveUp(Obstacle::limit);
    // There the document would end.
    if (bytes.find('\0') != std::string_view::npos)
        giveUp(Obstacle::error);
    if (!goesOn())
        return finish();
    owned_->document = bytes;
    xmlParserInput* const input =
        xmlNewStringInputStream(parser_, reinterpret_cast<const xmlChar*>(owned_->document.c_str()));
    if (!input || inputPush(parser_, input) < 0)
        throw std::bad_alloc();
    if (xmlParseDocument(parser_) != 0 || parser_->errNo != XML_ERR_OK)
        giveUp(Obstacle::error);
    return finish();
}

/// The other encodings that libxml2 detects without a declaration begin with other bytes.
void PlainParser::requireEncoding(std::string_view firstBlock) {
    if (firstBlock.front() != '<' || firstBlock.substr(0, 2).back() == '\0')
        giveUp(Obstacle::encoding);
}

PlainDocument PlainParser::finish() {
    if (failure_)
        std::rethrow_exception(failure_);
    if (obstacle_ != Obstacle::none)
        return {nullptr, obstacle_};
    return {tree_.takeRoot(), Obstacle::none};
}

void PlainParser::parseBlock(std::string_view block, bool isLast) {
    // libxml2 has limits for texts, comments, tags and their parts, all of 10,000,000 bytes or characters, and one of
    // the same size for all names together. The two ways to read may reach them at different places.
    constexpr std::size_t maxBytes = 1'000'000;
    if (!goesOn())
        return;
    bytesSinceTag_ += block.size();
    if (xmlParseChunk(parser_, block.data(), static_cast<int>(block.size()), isLast ? 1 : 0) != XML_ERR_OK)
        giveUp(Obstacle::error);
    if (bytesSinceTag_ > maxBytes || xmlDictGetUsage(parser_->dict) > maxBytes)
        giveUp(Obstacle::limit);
}

void PlainParser::startElement(const xmlChar* name, const xmlChar** attributes, int attributeCount) {
    constexpr std::size_t maxDepth = 200;  // less than what libxml2 allows
    if (++depth_ > maxDepth)
        return giveUp(Obstacle::limit);
    bytesSinceTag_ = 0;
    if (extent_ == Extent::rootOnly && tree_.hasRoot())
        return;
    // What is read in one piece is not converted, and the document may not say what it would be converted from.
    for (const xmlChar* const encoding : {parser_->myDoc->encoding, parser_->input->encoding}) {
        if (encoding && xmlStrcasecmp(encoding, reinterpret_cast<const xmlChar*>("UTF-8")) != 0)
            return giveUp(Obstacle::encoding);
    }
    tree_.startElement(name);
    // Each attribute is five pointers: name, prefix, URI, and where the value begins and ends.
    for (const xmlChar** const end = attributes + 5 * attributeCount; attributes != end; attributes += 5) {
        if (attributes[1])
            return giveUp(Obstacle::prefix);
        const char* const value = reinterpret_cast<const char*>(attributes[3]);
        tree_.addAttribute(attributes[0], {value, static_cast<std::size_t>(attributes[4] - attributes[3])});
    }
    tree_.endAttributes();
}

void PlainParser::endElement() {
    --depth_;
    bytesSinceTag_ = 0;
    if (!isInsideRoot())
        tree_.endElement();
}

/// What was found first counts.
void PlainParser::giveUp(Obstacle obstacle) {
    if (obstacle_ == Obstacle::none)
        obstacle_ = obstacle;
    xmlStopParser(parser_);
}

template <class Step>
void PlainParser::run(void* context, const Step& step) {
    auto* const self = static_cast<PlainParser*>(static_cast<xmlParserCtxt*>(context)->_private);
    // There is none yet if the memory does not suffice to make the parser.
    if (!self || !self->goesOn())
        return;
    try {
        step(*self);
    } catch (const exception::ProjectException&) {
        self->giveUp(Obstacle::attribute);
    } catch (...) {
        self->failure_ = std::current_exception();
        xmlStopParser(self->parser_);
    }
}

}  // namespace

PlainDocument parsePlainDocument(host::InputFileStream& stream, Extent extent, Rest rest) {
    return PlainParser(extent, rest, Feed::inBlocks).parse(stream);
}

PlainDocument parsePlainDocument(std::string_view bytes) {
    return PlainParser(Extent::wholeTree, Rest::isObstacle, Feed::inOnePiece).parse(bytes);
}

}  // namespace project::metadata::detail
