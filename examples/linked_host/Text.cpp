// Texts, and the sentences of the message catalog.

#include "Text.hpp"

#include "host/MessageException.hpp"
#include "host/Text.hpp"
#include "host/XmlText.hpp"

#include <map>

namespace host {

namespace {

constexpr char32_t replacement = 0xFFFD;

/// The length of the well-formed UTF-8 character at the start of `bytes`, which it puts into `character`; 0 if there
/// is none.
std::size_t decode(std::string_view bytes, char32_t& character) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(bytes[i]); };
    const std::size_t size = byte(0) < 0x80 ? 1 : byte(0) < 0xC2 ? 0 : byte(0) < 0xE0 ? 2 : byte(0) < 0xF0 ? 3 : 4;
    if (size == 0 || byte(0) > 0xF4 || size > bytes.size())
        return 0;
    character = size == 1 ? byte(0) : byte(0) & (0xFFU >> (size + 1));
    for (std::size_t i = 1; i < size; ++i) {
        if ((byte(i) & 0xC0) != 0x80)
            return 0;
        character = character << 6 | (byte(i) & 0x3FU);
    }
    const bool isOverlong = (size == 3 && character < 0x800) || (size == 4 && character < 0x10000);
    const bool isSurrogate = character >= 0xD800 && character < 0xE000;
    return isOverlong || isSurrogate || character > 0x10FFFF ? 0 : size;
}

void append(std::u16string& text, char32_t character) {
    if (character >= 0x10000)
        text += static_cast<char16_t>(0xD7C0 + (character >> 10));
    text += static_cast<char16_t>(character < 0x10000 ? character : 0xDC00 + (character & 0x3FF));
}

void append(std::string& bytes, char32_t character) {
    const auto add = [&](char32_t byte) { bytes += static_cast<char>(byte); };
    if (character < 0x80)
        return add(character);
    if (character >= 0x10000)
        add(0xF0 | character >> 18), add(0x80 | (character >> 12 & 0x3F));
    else if (character >= 0x800)
        add(0xE0 | character >> 12);
    if (character >= 0x800)
        add(0x80 | (character >> 6 & 0x3F));
    else
        add(0xC0 | character >> 6);
    add(0x80 | (character & 0x3F));
}

}  // namespace

std::u16string decodeName(std::string_view bytes, bool keepsBytes) {
    std::u16string text;
    while (!bytes.empty()) {
        char32_t character = 0;
        const std::size_t size = decode(bytes, character);
        if (size == 0)
            character = keepsBytes ? 0xDC00 + static_cast<unsigned char>(bytes[0]) : replacement;
        append(text, character);
        bytes.remove_prefix(size == 0 ? 1 : size);
    }
    return text;
}

std::string encodeName(std::u16string_view text, bool keepsBytes) {
    std::string bytes;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool isHigh = text[i] >= 0xD800 && text[i] < 0xDC00;
        const bool isPair = isHigh && i + 1 < text.size() && text[i + 1] >= 0xDC00 && text[i + 1] < 0xE000;
        if (isPair) {
            append(bytes, 0x10000 + ((text[i] & 0x3FFU) << 10 | (text[i + 1] & 0x3FFU)));
            ++i;
        } else if (keepsBytes && text[i] >= 0xDC80 && text[i] < 0xDD00) {
            bytes += static_cast<char>(text[i] - 0xDC00);
        } else {
            append(bytes, text[i] >= 0xD800 && text[i] < 0xE000 ? replacement : text[i]);
        }
    }
    return bytes;
}

std::string toUtf8(std::u16string_view text) {
    return encodeName(text, false);
}

std::u16string fromUtf8(std::string_view bytes) {
    return decodeName(bytes, false);
}

XmlText::XmlText(std::u16string_view text) : text_(toUtf8(text)) {
    for (auto zero = text_.find('\0'); zero != std::string::npos; zero = text_.find('\0'))
        text_.replace(zero, 1, "\xEF\xBF\xBD");
}

std::u16string XmlText::toUtf16(const xmlChar* text) {
    return text ? fromUtf8(reinterpret_cast<const char*>(text)) : u"";
}

UserException::~UserException() = default;

std::string getIdText(const MessageId& id) {
    return id.catalog + ':' + id.key;
}

std::u16string getMessageText(const MessageId& id) {
    static const auto& sentences = *new std::map<std::string, std::string>{
        {"ReadOnlyMetadataFailure", "This is read-only"},
        {"MetadataWriteFailure", "This cannot be written"},
        {"FailedToMakeMetadataWritable", "This cannot be made writable"},
        {"ListChildFilesFailure", "This folder cannot be listed"},
        {"MetadataReadFailure", "This cannot be read"},
        {"PutMetadataKeyFailure", "This is no key"},
        {"PutMetadataValueFailure", "This is no value"},
    };
    const auto sentence = sentences.find(id.key);
    std::string text = sentence == sentences.end() ? getIdText(id) : sentence->second;
    for (const MessageArgument& argument : id.arguments) {
        if (const auto* part = std::get_if<std::u16string>(&argument); part && !part->empty())
            text += ": " + toUtf8(*part);
    }
    return fromUtf8(text);
}

}  // namespace host
