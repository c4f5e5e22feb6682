/// The message catalog.
#include "host/MessageException.hpp"

#include "embedded/host/Utf.hpp"
#include "host/Text.hpp"

#include <algorithm>
#include <string_view>

namespace host {

namespace {

/// A sentence of the catalog. In its text
///     {1}         is the first argument;
///     {1~}        is the first argument, cut if it is long;
///     [: {2}]     is left out when the second argument is empty;
///     [: {2}|: x] is ": x" when the second argument is empty.
struct Message {
    std::string_view id;
    std::u16string_view text;
};

constexpr Message catalog[] = {
    {"KORVEX:project:metadata:ReadOnlyMetadataFailure",
     u"Cannot change \"{1}\", because it or its folder is read-only"},
    {"KORVEX:project:metadata:MetadataWriteFailure",
     u"Cannot write metadata to \"{1}\"[: {2}|: it cannot be opened, or there is no space left]"},
    {"KORVEX:project:metadata:FailedToMakeMetadataWritable", u"Cannot make \"{1}\" writable[: {2}]"},
    {"KORVEX:project:metadata:ListChildFilesFailure", u"Cannot list the folder \"{1}\"[: {2}]"},
    {"KORVEX:project:metadata:MetadataReadFailure",
     u"Cannot read metadata from \"{1}\"[: {2}|: it cannot be opened, or it is not complete, well-formed XML]"},
    {"KORVEX:project:metadata:PutMetadataKeyFailure", u"The attribute key \"{1~}\" is not an XML name"},
    {"KORVEX:project:metadata:PutMetadataValueFailure",
     u"The attribute value \"{1~}\" holds a character that cannot stand in XML"},
    {"host:SettingsFailure", u"Cannot read the settings file \"{1}\"[, line {2}][: {3}]"},
    {"host:UnknownSettingsGroup", u"There is no settings group \"{1~}\"[ in the settings file \"{2}\"]"},
    {"host:UnknownSetting",
     u"There is no setting \"{2~}\" in the settings group \"{1~}\"[ of the settings file \"{3}\"]"},
};

std::u16string toText(const MessageArgument& argument) {
    struct Converter {
        std::u16string operator()(std::int64_t number) const { return fromUtf8(std::to_string(number)); }
        std::u16string operator()(const std::string& text) const { return fromUtf8(text); }
        std::u16string operator()(const std::u16string& text) const { return text; }
    };
    return std::visit(Converter(), argument);
}

std::u16string shorten(std::u16string text) {
    constexpr std::size_t longest = 80;
    if (text.size() > longest) {
        const bool splitsPair = (text[longest - 1] & 0xFC00) == 0xD800;
        text.resize(longest - (splitsPair ? 1 : 0));
        text += u'\u2026';
    }
    return text;
}

/// The argument that the placeholder at the start of `text` names, missing ones being empty.
std::u16string getArgument(std::u16string_view text, const std::vector<MessageArgument>& arguments) {
    const auto index = static_cast<std::size_t>(text[1] - u'1');
    std::u16string argument = index < arguments.size() ? toText(arguments[index]) : std::u16string();
    return toReadable(text[2] == u'~' ? shorten(std::move(argument)) : argument);
}

/// Of "A|B", the A if the argument in it is not empty, otherwise the B.
std::u16string_view choose(std::u16string_view choice, const std::vector<MessageArgument>& arguments) {
    const auto bar = std::min(choice.find(u'|'), choice.size());
    const bool given = !getArgument(choice.substr(choice.find(u'{')), arguments).empty();
    return given ? choice.substr(0, bar) : choice.substr(std::min(bar + 1, choice.size()));
}

std::u16string fillIn(std::u16string_view text, const std::vector<MessageArgument>& arguments) {
    std::u16string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == u'{') {
            result += getArgument(text.substr(i), arguments);
            i = text.find(u'}', i);
        } else if (text[i] == u'[') {
            const auto end = text.find(u']', i);
            result += fillIn(choose(text.substr(i + 1, end - i - 1), arguments), arguments);
            i = end;
        } else {
            result += text[i];
        }
    }
    return result;
}

}  // namespace

UserException::~UserException() = default;

std::string getIdText(const MessageId& id) {
    return id.catalog + ':' + id.key;
}

std::u16string getMessageText(const MessageId& id) {
    const std::string idText = getIdText(id);
    for (const Message& message : catalog) {
        if (message.id == idText)
            return fillIn(message.text, id.arguments);
    }
    std::u16string text = fromUtf8(idText);
    for (const MessageArgument& argument : id.arguments)
        text += u" \"" + toReadable(toText(argument)) + u'"';
    return text;
}

}  // namespace host
