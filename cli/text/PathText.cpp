#include "cli/text/PathText.hpp"

#include <string_view>
#include <vector>

#include "cli/text/Errors.hpp"
#include "cli/text/Escapes.hpp"
#include "cli/text/Json.hpp"
#include "cli/text/SafeText.hpp"

namespace cli {

namespace {

const std::string rootText = "/";

[[noreturn]] void refuse(const std::string& text, const std::string& reason) {
    throw CommandError(Status::usage, '"' + text + "\" is no path such as \"Folder:src|File:main.c\": " + reason);
}

std::string escapePart(const std::u16string& part, std::string_view marks) {
    return escapeMarks(escapeName(part), marks);
}

/// Reads one step after the other.
class Parser {
public:
    explicit Parser(const std::string& text) : text_(text), units_(host::Path::fromAccessName(text).text()) {}

    NodeAddress parse() {
        NodeAddress address;
        if (units_.compare(0, 2, u"/#") == 0)
            next_ = 1;
        else
            address.path = parsePath();
        while (take(u'#'))
            address.inside.push_back(parseStep());
        return address;
    }

private:
    bool isAtEnd() const { return next_ == units_.size(); }

    /// Goes past `unit` if that comes next. @return whether it does
    bool take(char16_t unit) {
        if (isAtEnd() || units_[next_] != unit)
            return false;
        ++next_;
        return true;
    }

    pm::MetadataPath parsePath() {
        std::vector<pm::PathElement> elements;
        do {
            const std::u16string type = readPart(u":|#");
            if (!take(u':'))
                refuse(text_, "a step has no \":\" between its type and its location");
            elements.emplace_back(type, readPart(u"|#"));
        } while (take(u'|'));
        return pm::MetadataPath(elements);
    }

    NodeStep parseStep() {
        NodeStep step{readPart(u"#[")};
        if (step.name.empty())
            refuse(text_, "after \"#\" comes the name of a child node");
        if (!take(u'['))
            return step;
        std::string digits;
        while (!isAtEnd() && units_[next_] >= u'0' && units_[next_] <= u'9')
            digits += static_cast<char>(units_[next_++]);
        if (digits.empty() || digits.size() > 9 || digits.front() == '0' || !take(u']') ||
            !(isAtEnd() || units_[next_] == u'#')) {
            refuse(text_, "after the name of a child node, \"[2]\" says which one of that name is meant, from 1");
        }
        step.position = std::stoul(digits);
        return step;
    }

    /// Up to one of `ends`, or to the end.
    std::u16string readPart(std::u16string_view ends) {
        std::u16string part;
        while (!isAtEnd() && ends.find(units_[next_]) == std::u16string_view::npos) {
            const char16_t unit = units_[next_++];
            if (unit == u'\\')
                part += readEscape();
            else
                part += unit;
        }
        return part;
    }

    std::u16string readEscape() {
        const auto refuseEscape = [this](const char* reason) { refuse(text_, reason); };
        const auto [mark, value] = cli::readEscape(units_, next_, refuseEscape);
        if (mark == U'x')
            return std::u16string(1, static_cast<char16_t>(0xDC00 + value));
        if (std::u32string_view(U"\\|:[#tnruU").find(mark) == std::u32string_view::npos)
            refuseEscape("after a backslash comes one of \\ | : # [ t n r x u U");
        return toUnits(value);
    }

    const std::string& text_;
    const std::u16string units_;
    std::size_t next_ = 0;
};

}  // namespace

std::string formatElement(const pm::PathElement& element) {
    const std::string type = escapePart(element.getType(), ":|#");
    // A path that begins with "[" is JSON.
    return (type.rfind('[', 0) == 0 ? "\\" : "") + type + ':' + formatLocation(element);
}

std::string formatLocation(const pm::PathElement& element) {
    return escapePart(element.getLocation(), "|#");
}

std::string formatPath(const pm::MetadataPath& path) {
    std::string text;
    for (const pm::PathElement& element : path.getPath())
        text += (text.empty() ? "" : "|") + formatElement(element);
    return text.empty() ? rootText : text;
}

std::string formatAddress(const NodeAddress& address) {
    std::string text = formatPath(address.path);
    for (const NodeStep& step : address.inside) {
        text += '#' + escapePart(step.name, "#[");
        if (step.position > 0)
            text += '[' + std::to_string(step.position) + ']';
    }
    return text;
}

NodeAddress parseAddress(const std::string& text) {
    if (text == rootText)
        return {};
    if (text.empty())
        refuse(text, "nothing is in it; the root path is written as \"" + rootText + '"');
    if (text.front() != '[')
        return Parser(text).parse();
    const auto address = addressFromJson(text);
    if (!address) {
        const bool mayHaveSurrogate = text.find("\\ud") != std::string::npos || text.find("\\uD") != std::string::npos;
        refuse(text, std::string("as JSON it is a list of steps, [[\"Folder\",\"src\"],[\"File\",\"main.c\"]]") +
                         (mayHaveSurrogate ? ", and a surrogate stands before or after its partner; one that is alone "
                                             "can be written only as text, Folder:\\uD800"
                                           : ""));
    }
    return *address;
}

pm::MetadataPath parsePath(const std::string& text) {
    NodeAddress address = parseAddress(text);
    if (!address.inside.empty())
        refuse(text, "it leads into a node, and a path is needed here; a \"#\" in a location is written \"\\#\"");
    return std::move(address.path);
}

void requirePath(const pm::MetadataManager& store, const pm::MetadataPath& path) {
    if (store.hasPath(path))
        return;
    pm::MetadataPath ancestor = path.getParent();
    while (!ancestor.getPath().empty() && !store.hasPath(ancestor))
        ancestor = ancestor.getParent();
    std::vector<pm::PathElement> siblings;
    for (const pm::MetadataPath& child : store.getChildren(ancestor))
        siblings.push_back(child.getLeaf());
    throw MissingPath({"There is no path ", NodeAddress{path}, "; the nearest one above it is ", NodeAddress{ancestor}},
                      path.getPath()[ancestor.getPath().size()], std::move(siblings));
}

}  // namespace cli
