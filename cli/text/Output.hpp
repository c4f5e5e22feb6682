/// The standard output, which belongs to the main thread, and how numbers stand in it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <string>
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

/// Prints `value` in a column behind `label`.
/// @param label ASCII, at most 11 characters
/// @throws as `print`
void printField(const std::string& label, const std::string& value);

/// Does `tell`, which prints what the command has found or done. That nobody reads it changes nothing of that.
/// @throws as `print`, but for `OutputClosed`
void printIfRead(const std::function<void()>& tell);

/// Writes what is still in the buffer.
/// @throws as `print`
void flushOutput();

/// `number` with its thousands apart, such as "99,000".
std::string formatNumber(std::size_t number);

/// Such as "1 file" or "99,000 files".
std::string formatCount(std::size_t number, const std::string& thing);

/// `size` in bytes for people, such as "12.3 MB".
std::string formatSize(std::uint64_t size);

}  // namespace cli
