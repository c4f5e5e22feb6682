// A filter is parsed once, into a function that tests properties and the text that says the same.
#include "cppmicroservices/LDAPFilter.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <functional>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <vector>

#include "embedded/cppmicroservices/src/Records.hpp"

namespace cppmicroservices {
inline namespace project_metadata {
namespace detail {

struct LdapExpression {
    std::string text;
    std::function<bool(const PropertyMap&)> matches;
};

}  // namespace detail

namespace {

using detail::LdapExpression;
using detail::PropertyMap;

/// Deeper than anybody nests, and far from what the stack holds.
constexpr int maximalDepth = 200;

struct Comparison {
    char operation = '=';             // the first character of "=", "~=", "<=" or ">="
    std::string value;                // without the escapes
    std::vector<std::string> pieces;  // the value cut at every "*" that stands for any text
};

bool isSpace(char c) {
    return std::isspace(static_cast<unsigned char>(c)) != 0;
}

std::string withoutCaseAndSpace(std::string_view text) {
    std::string result;
    for (const char c : text) {
        if (!isSpace(c))
            result += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return result;
}

/// Whether `text` is the pieces with any text between them. Each is taken at its first place: that leaves the others
/// the most.
bool matchesPattern(std::string_view text, const std::vector<std::string>& pieces) {
    const auto& first = pieces.front();
    const auto& last = pieces.back();
    if (pieces.size() == 1)
        return text == first;
    if (text.size() < first.size() + last.size() || text.substr(0, first.size()) != first ||
        text.substr(text.size() - last.size()) != last) {
        return false;
    }
    text = text.substr(first.size(), text.size() - first.size() - last.size());
    for (auto piece = pieces.begin() + 1; piece != pieces.end() - 1; ++piece) {
        const auto place = text.find(*piece);
        if (place == std::string_view::npos)
            return false;
        text.remove_prefix(place + piece->size());
    }
    return true;
}

bool matchesText(const std::string& text, const Comparison& comparison) {
    switch (comparison.operation) {
        case '<':
            return text <= comparison.value;
        case '>':
            return text >= comparison.value;
        case '~':
            return withoutCaseAndSpace(text) == withoutCaseAndSpace(comparison.value);
        default:
            return matchesPattern(text, comparison.pieces);
    }
}

bool matchesFlag(bool flag, const Comparison& comparison) {
    const bool isOrder = comparison.operation == '<' || comparison.operation == '>';
    return !isOrder && withoutCaseAndSpace(comparison.value) == (flag ? "true" : "false");
}

/// Whether `value` is a T, and the comparison holds.
template <class T>
bool matchesNumber(const Any& value, const Comparison& comparison) {
    const auto* number = any_cast<T>(&value);
    const std::string text = withoutCaseAndSpace(comparison.value);
    T limit{};
    if (!number || std::from_chars(text.data(), text.data() + text.size(), limit).ec != std::errc())
        return false;
    return (comparison.operation == '>' || *number <= limit) && (comparison.operation == '<' || *number >= limit);
}

template <class... Ts>
bool matchesAnyNumber(const Any& value, const Comparison& comparison) {
    return (matchesNumber<Ts>(value, comparison) || ...);
}

bool matchesValue(const Any& value, const Comparison& comparison) {
    const auto matchesItem = [&](const std::string& text) { return matchesText(text, comparison); };
    if (comparison.operation == '=' && comparison.pieces == std::vector<std::string>(2))
        return !value.Empty();  // "(key=*)"
    if (const auto* text = any_cast<std::string>(&value))
        return matchesItem(*text);
    if (const auto* list = any_cast<std::vector<std::string>>(&value))
        return std::any_of(list->begin(), list->end(), matchesItem);
    if (const auto* flag = any_cast<bool>(&value))
        return matchesFlag(*flag, comparison);
    return matchesAnyNumber<int, long, long long, unsigned, unsigned long, unsigned long long, double>(value,
                                                                                                       comparison);
}

class Parser {
public:
    explicit Parser(std::string_view text) : rest_(text) {}

    LdapExpression parse() {
        if (rest_.empty())
            fail("Null query");
        auto expression = parseExpression(1);
        skipSpace();
        if (!rest_.empty())
            fail("Trailing garbage");
        return expression;
    }

private:
    [[noreturn]] void fail(const std::string& cause) const {
        throw std::invalid_argument(cause + ": " + std::string(rest_));
    }

    char peek() const {
        if (rest_.empty())
            fail("Unexpected end of query");
        return rest_.front();
    }

    char take() {
        const char c = peek();
        rest_.remove_prefix(1);
        return c;
    }

    void expect(char c, const char* otherwise = "Malformed query") {
        if (peek() != c)
            fail(otherwise);
        take();
    }

    void skipSpace() {
        while (!rest_.empty() && isSpace(rest_.front()))
            take();
    }

    LdapExpression parseExpression(int depth) {
        if (depth > maximalDepth)
            fail("Malformed query, nested too deeply");
        skipSpace();
        expect('(');
        skipSpace();
        const bool isCombination = std::string_view("&|!").find(peek()) != std::string_view::npos;
        auto expression = isCombination ? parseCombination(take(), depth) : parseComparison();
        expect(')');
        return expression;
    }

    LdapExpression parseCombination(char connective, int depth) {
        std::vector<LdapExpression> operands;
        std::string text = std::string("(") + connective;
        do {
            operands.push_back(parseExpression(depth + 1));
            text += operands.back().text;
            skipSpace();
        } while (connective != '!' && peek() == '(');
        return {text + ")", [connective, operands](const PropertyMap& properties) {
                    const auto holds = [&](const auto& operand) { return operand.matches(properties); };
                    return connective == '&'   ? std::all_of(operands.begin(), operands.end(), holds)
                           : connective == '|' ? std::any_of(operands.begin(), operands.end(), holds)
                                               : !holds(operands.front());
                }};
    }

    LdapExpression parseComparison() {
        std::string key;
        while (std::string_view("()<>=~").find(peek()) == std::string_view::npos)
            key += take();
        while (!key.empty() && isSpace(key.back()))
            key.pop_back();
        if (key.empty() || peek() == '(' || peek() == ')')
            fail(key.empty() ? "Malformed query" : "Undefined operator");
        const std::string_view start = rest_;
        Comparison comparison;
        comparison.operation = take();
        if (comparison.operation != '=')
            expect('=', "Undefined operator");
        parseValue(comparison);
        const auto text = "(" + key + std::string(start.substr(0, start.size() - rest_.size())) + ")";
        return {text, [key, comparison](const PropertyMap& properties) {
                    const auto found = properties.find(key);
                    return found != properties.end() && matchesValue(found->second, comparison);
                }};
    }

    /// Up to the parenthesis that ends the comparison.
    void parseValue(Comparison& comparison) {
        comparison.pieces.emplace_back();
        for (int open = 0; open > 0 || peek() != ')';) {
            const char c = take();
            const char literal = c == '\\' ? take() : c;
            comparison.value += literal;
            if (c == '*')
                comparison.pieces.emplace_back();
            else
                comparison.pieces.back() += literal;
            open += c == '(' ? 1 : c == ')' ? -1 : 0;
        }
    }

    std::string_view rest_;
};

}  // namespace

LDAPFilter::LDAPFilter(const std::string& filter)
    : expression_(std::make_shared<LdapExpression>(Parser(filter).parse())) {}

bool LDAPFilter::Match(const ServiceReferenceBase& reference) const {
    const auto& record = detail::Access::record(reference);
    return expression_ && record && expression_->matches(record->properties);
}

std::string LDAPFilter::ToString() const {
    return expression_ ? expression_->text : std::string();
}

}  // namespace project_metadata
}  // namespace cppmicroservices
