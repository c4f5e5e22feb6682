/// The lines that `edit` reads, as words. May be called from any thread.
#pragma once

#include <string>
#include <vector>

namespace cli {

/// The words of `line`, in bytes. Blanks stand between them; what is in single quotes is taken as it is, and in double
/// quotes the escapes stand for themselves that `diff` prints there: `\\`, `\"`, `\t`, `\n`, `\r`, `\xNN` for a byte,
/// `\uNNNN` and `\UNNNNNNNN` for a character. Outside of quotes a backslash is a character as others, since paths have
/// them. Nothing, if the line is empty or begins with "#".
/// @throws CommandError with `Status::usage` for a quote without an end, or an escape that is none
std::vector<std::string> splitWords(const std::string& line);

}  // namespace cli
