/// The standard output. It belongs to the main thread.
#pragma once

#include <exception>
#include <string_view>

namespace cli {

/// Whoever read the standard output has seen enough, as `head` has after ten lines.
class OutputClosed : public std::exception {
public:
    const char* what() const noexcept override { return "nobody reads the standard output"; }
};

/// Writes `text` to the standard output, which is buffered unless it is a terminal.
/// @throws OutputClosed if nobody reads it; std::system_error if it cannot be written for another reason;
///         host::InterruptedException
void print(std::string_view text);

/// As `print`, unless the user wants data only: a note on what was done.
void printNote(std::string_view text);

/// Writes what is still in the buffer.
/// @throws as `print`
void flushOutput();

}  // namespace cli
