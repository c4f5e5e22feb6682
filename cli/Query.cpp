#include "cli/Query.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <locale>
#include <optional>
#include <string_view>
#include <tuple>

#include <boost/regex.hpp>

#include "cli/text/Errors.hpp"
#include "cli/text/Glob.hpp"
#include "operations/NodeEdit.hpp"

namespace cli {

namespace {

using Test = std::function<bool(const std::u16string& text)>;

/// One element for each character; what is no Unicode counts as U+FFFD.
std::wstring toWide(const std::u16string& text) {
    std::wstring wide;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char16_t unit = text[i];
        const bool isPair =
            unit >= 0xD800 && unit <= 0xDBFF && i + 1 < text.size() && text[i + 1] >= 0xDC00 && text[i + 1] <= 0xDFFF;
        if (isPair) {
            wide += static_cast<wchar_t>(0x10000 + ((unit - 0xD800) << 10) + (text[i + 1] - 0xDC00));
            ++i;
        } else {
            wide += unit >= 0xD800 && unit <= 0xDFFF ? L'\xFFFD' : static_cast<wchar_t>(unit);
        }
    }
    return wide;
}

/// A regular expression in the syntax of Perl, found anywhere in the text. The library keeps its state off the stack,
/// and gives up where it would try too many ways.
Test makeRegex(const std::string& pattern, const Query::Manner& manner) {
    boost::wregex regex;
    try {
        regex.imbue(std::locale("C.UTF-8"));
        boost::wregex::flag_type flags = boost::regex_constants::perl;
        if (manner.ignoreCase)
            flags |= boost::regex_constants::icase;
        regex.assign(toWide(host::fromUtf8(pattern)), flags);
    } catch (const std::runtime_error& error) {
        throw CommandError(Status::usage, '"' + pattern + "\" is no regular expression: " + error.what());
    }
    return [regex, pattern](const std::u16string& text) {
        try {
            return boost::regex_search(toWide(text), regex);
        } catch (const std::runtime_error&) {
            throw CommandError(Status::failure, "The regular expression \"" + pattern +
                                                    "\" takes too long for a text of " + std::to_string(text.size()) +
                                                    " characters");
        }
    };
}

Test makePattern(const std::string& pattern, const Query::Manner& manner) {
    if (manner.isRegex)
        return makeRegex(pattern, manner);
    return [glob = Glob(pattern, manner.ignoreCase)](const std::u16string& text) { return glob.matches(text); };
}

/// A decimal number with all its digits: `sign` times 0.`digits` times ten to the power of `exponent`.
struct Decimal {
    int sign = 0;
    std::int64_t exponent = 0;
    std::string digits;  // without zeros at both ends; empty for 0

    bool operator<(const Decimal& other) const {
        if (sign != other.sign)
            return sign < other.sign;
        const auto& [smaller, larger] = sign < 0 ? std::tie(other, *this) : std::tie(*this, other);
        return std::tie(smaller.exponent, smaller.digits) < std::tie(larger.exponent, larger.digits);
    }
};

/// @return no value unless all of `text` is a decimal number, such as "12", "-0.5" or "1e6"
std::optional<Decimal> readNumber(std::string_view text) {
    const auto takeDigits = [&text] {
        const std::string_view digits = text.substr(0, text.find_first_not_of("0123456789"));
        text.remove_prefix(digits.size());
        return digits;
    };
    const auto take = [&text](std::string_view marks) {
        if (text.empty() || marks.find(text.front()) == std::string_view::npos)
            return '\0';
        const char mark = text.front();
        text.remove_prefix(1);
        return mark;
    };
    Decimal number;
    number.sign = take("-") != '\0' ? -1 : 1;
    number.digits = takeDigits();
    number.exponent = static_cast<std::int64_t>(number.digits.size());
    if (take(".") != '\0')
        number.digits += takeDigits();
    if (number.digits.empty())
        return std::nullopt;
    if (take("eE") != '\0') {
        constexpr std::size_t most = 15;
        const bool isNegative = take("+-") == '-';
        const std::string_view digits = takeDigits();
        if (digits.empty() || digits.size() > most)
            return std::nullopt;
        const std::int64_t exponent = std::stoll(std::string(digits));
        number.exponent += isNegative ? -exponent : exponent;
    }
    if (!text.empty())
        return std::nullopt;
    const std::size_t first = number.digits.find_first_not_of('0');
    if (first == std::string::npos)
        return Decimal();
    number.digits = number.digits.substr(first, number.digits.find_last_not_of('0') + 1 - first);
    number.exponent -= static_cast<std::int64_t>(first);
    return number;
}

/// Reads digits and marks one after the other.
class DateReader {
public:
    explicit DateReader(std::string_view text) : rest_(text) {}

    bool skip(char mark) {
        if (rest_.empty() || rest_.front() != mark)
            return false;
        rest_.remove_prefix(1);
        return true;
    }

    /// A number of `digits` digits, from `least` to `most`.
    std::optional<std::int64_t> read(std::size_t digits, std::int64_t least, std::int64_t most) {
        if (rest_.size() < digits || rest_.substr(0, digits).find_first_not_of("0123456789") != std::string_view::npos)
            return std::nullopt;
        std::int64_t number = 0;
        for (const char digit : rest_.substr(0, digits))
            number = number * 10 + (digit - '0');
        rest_.remove_prefix(digits);
        return number >= least && number <= most ? std::optional(number) : std::nullopt;
    }

    /// Digits after a point, as nanoseconds; further ones do not count.
    std::optional<std::int64_t> readFraction() {
        const std::size_t count = std::min(rest_.find_first_not_of("0123456789"), rest_.size());
        if (count == 0)
            return std::nullopt;
        std::int64_t number = 0;
        for (std::size_t i = 0; i < 9; ++i)
            number = number * 10 + (i < count ? rest_[i] - '0' : 0);
        rest_.remove_prefix(count);
        return number;
    }

    bool isAtEnd() const { return rest_.empty(); }

private:
    std::string_view rest_;
};

/// Seconds since the beginning of 1970, and nanoseconds.
using Moment = std::pair<std::int64_t, std::int64_t>;

std::int64_t countDaysOf(std::int64_t year, std::int64_t month) {
    const bool isLeapYear = year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
    if (month == 2)
        return isLeapYear ? 29 : 28;
    return month == 4 || month == 6 || month == 9 || month == 11 ? 30 : 31;
}

/// A date or a time by ISO 8601: "2026-11-21", "2026-11-21T23:26:25.5Z", "2026-11-21 23:26+01:00". Without an offset it
/// is UTC.
std::optional<Moment> readMoment(std::string_view text) {
    DateReader reader(text);
    const auto year = reader.read(4, 0, 9999);
    const auto month = year && reader.skip('-') ? reader.read(2, 1, 12) : std::nullopt;
    const auto day = month && reader.skip('-') ? reader.read(2, 1, countDaysOf(*year, *month)) : std::nullopt;
    if (!day)
        return std::nullopt;
    std::tm date{};
    date.tm_year = static_cast<int>(*year) - 1900;
    date.tm_mon = static_cast<int>(*month) - 1;
    date.tm_mday = static_cast<int>(*day);
    Moment moment{timegm(&date), 0};
    if (reader.isAtEnd())
        return moment;
    if (!reader.skip('T') && !reader.skip(' '))
        return std::nullopt;
    const auto hour = reader.read(2, 0, 24);
    const auto minute = hour && reader.skip(':') ? reader.read(2, 0, 59) : std::nullopt;
    if (!minute)
        return std::nullopt;
    moment.first += *hour * 3600 + *minute * 60;
    if (reader.skip(':')) {
        const auto second = reader.read(2, 0, 60);
        const auto fraction = second && reader.skip('.') ? reader.readFraction() : std::optional<std::int64_t>(0);
        if (!second || !fraction)
            return std::nullopt;
        moment.first += *second;
        moment.second = *fraction;
    }
    const bool isEast = reader.skip('+');
    if (isEast || reader.skip('-')) {
        const auto hours = reader.read(2, 0, 23);
        reader.skip(':');
        const auto minutes = hours ? reader.read(2, 0, 59) : std::nullopt;
        if (!minutes)
            return std::nullopt;
        moment.first += (isEast ? -1 : 1) * (*hours * 3600 + *minutes * 60);
    } else {
        reader.skip('Z');
    }
    return reader.isAtEnd() ? std::optional(moment) : std::nullopt;
}

template <class Value>
bool compare(const std::string& relation, const Value& a, const Value& b) {
    return relation == "<" ? a < b : relation == "<=" ? !(b < a) : relation == ">" ? b < a : !(a < b);
}

/// Whether a text is a number, or a date, as `bound` is one, and less or greater.
Test makeComparison(const std::string& relation, const std::string& bound) {
    if (const auto number = readNumber(bound)) {
        return [relation, number = *number](const std::u16string& text) {
            const auto value = readNumber(host::toUtf8(text));
            return value && compare(relation, *value, number);
        };
    }
    if (const auto moment = readMoment(bound)) {
        return [relation, moment = *moment](const std::u16string& text) {
            const auto value = readMoment(host::toUtf8(text));
            return value && compare(relation, *value, moment);
        };
    }
    throw CommandError(Status::usage, '"' + bound + "\" is neither a number nor a date such as 2026-11-21 or " +
                                          "2026-11-21T23:26:25Z, to be compared by \"" + relation + '"');
}

/// @param text a key; or a key, one of = < <= > >= and what the value is compared with
std::function<bool(const pm::MetadataNode*)> makeAttributeTest(const std::string& text, const Query::Manner& manner) {
    const std::size_t end = std::min(text.find_first_of("=<>"), text.size());
    if (end == 0)
        throw CommandError(Status::usage, '"' + text + "\" is no condition such as Owner=Ann: it names no attribute");
    std::string relation = text.substr(end, 1);
    if (!relation.empty() && relation != "=" && text.compare(end + 1, 1, "=") == 0)
        relation += '=';
    const std::string operand = text.substr(std::min(end + relation.size(), text.size()));
    const Test test = relation.empty()  ? [](const std::u16string&) { return true; }
                      : relation == "=" ? makePattern(operand, manner)
                                        : makeComparison(relation, operand);
    return [key = host::fromUtf8(text.substr(0, end)), test](const pm::MetadataNode* node) {
        const auto value = findAttribute(node, key);
        return value && test(*value);
    };
}

template <class Conditions, class Thing>
bool holdAll(const Conditions& conditions, const Thing& thing) {
    return std::all_of(conditions.begin(), conditions.end(), [&](const auto& holds) { return holds(thing); });
}

}  // namespace

Query::Query(const std::vector<std::pair<std::string, std::string>>& options, const Manner& manner) : alternatives_(1) {
    bool isNegated = false;
    bool isComplete = true;  // whether a condition may end here
    bool wantsBranch = false, wantsNode = false;
    for (const auto& [name, value] : options) {
        if (name == "not" || name == "or") {
            if (isNegated || (name == "or" && (!isComplete || options.front().first == "or")))
                throw CommandError(Status::usage, "Before --" + name + " a condition is missing");
            isComplete = false;
            isNegated = name == "not";
            if (name == "or") {
                alternatives_.emplace_back();
                wantsBranch = wantsNode = false;
            }
            continue;
        }
        Alternative& alternative = alternatives_.back();
        if (name == "type" || name == "location") {
            const Test test = makePattern(value, manner);
            const bool isType = name == "type";
            alternative.onPath.emplace_back([test, isType, isNegated](const pm::MetadataPath& path) {
                const bool isRoot = path.getPath().empty();
                return (!isRoot && test(isType ? path.getPath().back().getType()
                                               : path.getPath().back().getLocation())) != isNegated;
            });
        } else if (name == "branches") {
            alternative.onNode.emplace_back(
                [isNegated](const pm::MetadataNode* node) { return (node == nullptr) != isNegated; });
            wantsBranch = wantsBranch || !isNegated;
        } else {
            auto test = name == "attribute" ? makeAttributeTest(value, manner)
                                            : [test = makePattern(value, manner)](const pm::MetadataNode* node) {
                                                  return node && test(node->getName());
                                              };
            alternative.onNode.emplace_back(
                [test, isNegated](const pm::MetadataNode* node) { return test(node) != isNegated; });
            wantsNode = wantsNode || !isNegated;
        }
        if (wantsBranch && wantsNode) {
            throw CommandError(Status::usage,
                               "Branches have no node, so --branches goes with neither --name nor --attribute");
        }
        isNegated = false;
        isComplete = true;
    }
    if (!isComplete)
        throw CommandError(Status::usage, "After --" + options.back().first + " a condition is missing");
}

Query::Need Query::needFor(const pm::MetadataPath& path) const {
    Need need = Need::noMatch;
    for (const Alternative& alternative : alternatives_) {
        if (!holdAll(alternative.onPath, path))
            continue;
        if (alternative.onNode.empty())
            return Need::nothing;
        need = Need::node;
    }
    return need;
}

bool Query::matches(const pm::MetadataPath& path, const pm::MetadataNode* node) const {
    return std::any_of(alternatives_.begin(), alternatives_.end(), [&](const Alternative& alternative) {
        return holdAll(alternative.onPath, path) && holdAll(alternative.onNode, node);
    });
}

}  // namespace cli
