#include "cli/text/AttributeText.hpp"

#include "cli/Streams.hpp"
#include "cli/text/Errors.hpp"
#include "cli/text/Output.hpp"
#include "cli/text/PathText.hpp"
#include "cli/text/SafeText.hpp"
#include "cli/text/Suggestion.hpp"
#include "project/metadata/AttributeRules.hpp"

namespace cli {

namespace {

std::pair<std::u16string, std::u16string> parseAttribute(const std::string& text) {
    // A key holds neither.
    const std::size_t mark = text.find_first_of("=@");
    if (mark == std::string::npos) {
        throw CommandError(Status::usage, '"' + text +
                                              "\" is no attribute such as Owner=Ann or Notes@FILE: it has no "
                                              "\"=\" and no \"@\"");
    }
    std::u16string key = readText(text.substr(0, mark), "The key in \"" + text + '"');
    if (!pm::isValidKey(key)) {
        throw CommandError(Status::usage, "The key in \"" + text +
                                              "\" is no XML name: a letter, \"_\" or \":\", then letters, digits and "
                                              "\".\", \"-\", \"_\", \":\"");
    }
    const std::string rest = text.substr(mark + 1);
    const bool isFile = text[mark] == '@';
    const std::string what = isFile ? "The content of \"" + rest + '"' : "The value in \"" + text + '"';
    std::u16string value = readText(isFile ? readInput(rest) : rest, what);
    if (!pm::isValidAttribute(value))
        throw CommandError(Status::usage, what + " has characters that metadata cannot hold");
    return {std::move(key), std::move(value)};
}

}  // namespace

std::u16string readText(const std::string& bytes, const std::string& what) {
    std::u16string text = host::fromUtf8(bytes);
    if (host::toUtf8(text) != bytes)
        throw CommandError(Status::usage, what + " is not valid UTF-8");
    return text;
}

AttributeChanges parseAttributes(const std::vector<std::string>& texts, std::size_t first) {
    AttributeChanges changes;
    for (std::size_t i = first; i < texts.size(); ++i) {
        auto [key, value] = parseAttribute(texts[i]);
        if (const auto [place, isNew] = changes.emplace(std::move(key), std::move(value)); !isNew) {
            throw CommandError(Status::usage, "The key \"" + host::toUtf8(place->first) +
                                                  "\" is there twice, and a node has one value for it");
        }
    }
    return changes;
}

std::string describeMissingKey(const pm::MetadataNode& node, const NodeAddress& address, const std::u16string& key,
                               const std::string& consequence) {
    std::vector<std::string> keys;
    for (const std::u16string& each : node.getAttributeKeys())
        keys.push_back(host::toUtf8(each));
    return "The node at \"" + formatAddress(address) + "\" has no attribute \"" + host::toUtf8(key) + '"' +
           consequence + suggest(host::toUtf8(key), keys);
}

std::string describeAttribute(const std::u16string& key, const std::u16string& value) {
    constexpr std::size_t longest = 1000;
    return escapeText(key) + '=' +
           (value.size() > longest ? "(" + formatCount(value.size(), "character") + ')' : escapeText(value));
}

}  // namespace cli
