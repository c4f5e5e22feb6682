#include "cli/text/Words.hpp"

#include <cstddef>
#include <string_view>

#include "cli/text/Errors.hpp"
#include "cli/text/Escapes.hpp"

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
        const auto refuse = [](const std::string& reason) { throw CommandError(Status::usage, reason); };
        const auto [mark, value] = cli::readEscape(line_, next_, refuse);
        if (mark == U'x')
            return std::string(1, static_cast<char>(value));
        if (std::u32string_view(U"\\\"tnruU").find(mark) == std::u32string_view::npos) {
            refuse(
                "in double quotes, after a backslash comes one of \\ \" t n r x u U; in single quotes it is a "
                "character as others");
        }
        if (value >= 0xD800 && value <= 0xDFFF)
            refuse("an escape names no character");
        return host::toUtf8(toUnits(value));
    }

    const std::string& line_;
    std::size_t next_ = 0;
};

}  // namespace

std::vector<std::string> splitWords(const std::string& line) {
    return Splitter(line).split();
}

}  // namespace cli
