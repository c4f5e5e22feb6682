#include "cli/text/Words.hpp"

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "cli/text/Errors.hpp"
#include "host/Text.hpp"

namespace cli {

namespace {

constexpr std::string_view blanks = " \t\r\n";

bool isBlank(char byte) {
    return blanks.find(byte) != std::string_view::npos;
}

class Splitter {
public:
    explicit Splitter(const std::string& line) : line_(line) {}

    std::vector<std::string> split() {
        std::vector<std::string> words;
        for (skipBlanks(); !isAtEnd() && !(words.empty() && line_[next_] == '#'); skipBlanks())
            words.push_back(readWord());
        return words;
    }

private:
    bool isAtEnd() const { return next_ == line_.size(); }

    void skipBlanks() {
        while (!isAtEnd() && isBlank(line_[next_]))
            ++next_;
    }

    std::string readWord() {
        std::string word;
        while (!isAtEnd() && !isBlank(line_[next_])) {
            const char byte = line_[next_++];
            if (byte == '\'')
                word += readQuoted();
            else if (byte == '"')
                word += readLiteral();
            else
                word += byte;
        }
        return word;
    }

    std::string readQuoted() {
        const std::size_t end = line_.find('\'', next_);
        if (end == std::string::npos)
            throw CommandError(Status::usage, "a ' has no second one");
        std::string text = line_.substr(next_, end - next_);
        next_ = end + 1;
        return text;
    }

    std::string readLiteral() {
        std::string text;
        while (!isAtEnd() && line_[next_] != '"') {
            const char byte = line_[next_++];
            if (byte == '\\')
                text += readEscape();
            else
                text += byte;
        }
        if (isAtEnd())
            throw CommandError(Status::usage, "a \" has no second one");
        ++next_;
        return text;
    }

    std::string readEscape() {
        const char mark = isAtEnd() ? '\0' : line_[next_++];
        switch (mark) {
            case '\\':
            case '"':
                return std::string(1, mark);
            case 't':
                return "\t";
            case 'n':
                return "\n";
            case 'r':
                return "\r";
            case 'x':
                return std::string(1, static_cast<char>(readNumber(2)));
            case 'u':
                return toBytes(readNumber(4));
            case 'U':
                return toBytes(readNumber(8));
            default:
                throw CommandError(Status::usage,
                                   "in double quotes, after a backslash comes one of \\ \" t n r x u U; in single "
                                   "quotes it is a character as others");
        }
    }

    std::uint32_t readNumber(std::size_t digits) {
        constexpr std::string_view values = "0123456789ABCDEF";
        std::uint32_t number = 0;
        for (std::size_t i = 0; i < digits; ++i) {
            const char digit = isAtEnd() ? '\0' : line_[next_++];
            const std::size_t value = values.find(digit >= 'a' && digit <= 'f' ? char(digit - 0x20) : digit);
            if (value == std::string_view::npos)
                throw CommandError(Status::usage, "an escape lacks hexadecimal digits");
            number = number * 16 + static_cast<std::uint32_t>(value);
        }
        return number;
    }

    static std::string toBytes(std::uint32_t character) {
        const bool isSurrogate = character >= 0xD800 && character <= 0xDFFF;
        if (character > 0x10FFFF || isSurrogate)
            throw CommandError(Status::usage, "an escape names no character");
        if (character < 0x10000)
            return host::toUtf8(std::u16string(1, static_cast<char16_t>(character)));
        const std::uint32_t rest = character - 0x10000;
        return host::toUtf8(std::u16string{static_cast<char16_t>(0xD800 + (rest >> 10U)),
                                           static_cast<char16_t>(0xDC00 + (rest & 0x3FFU))});
    }

    const std::string& line_;
    std::size_t next_ = 0;
};

}  // namespace

std::vector<std::string> splitWords(const std::string& line) {
    return Splitter(line).split();
}

}  // namespace cli
