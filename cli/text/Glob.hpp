/// Patterns of names and values. Main thread only.
#pragma once

#include <string>

namespace cli {

/// A pattern of the shell, by POSIX 2.13 "Pattern Matching Notation"; "*" and "?" stand for any character.
class Glob {
public:
    Glob(const std::string& pattern, bool ignoreCase);

    /// Whether it describes all of `text`.
    bool matches(const std::u16string& text) const;

private:
    std::string pattern_;
    int flags_;
};

}  // namespace cli
