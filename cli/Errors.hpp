/// The command's own errors, and how all errors are shown.
#pragma once

#include <stdexcept>
#include <string>

#include "cli/Command.hpp"
#include "host/MessageException.hpp"
#include "host/Path.hpp"

namespace cli {

/// The command cannot go on. `what()` is a sentence in UTF-8; the paths in it are bytes as the disk has them.
class CommandError : public std::runtime_error {
public:
    CommandError(Status status, const std::string& sentence) : std::runtime_error(sentence), status_(status) {}

    /// With what the process ends.
    Status status() const { return status_; }

private:
    Status status_;
};

/// What is wrong with `file`, of which a store says `problem`, which may be empty: with the line, if it is XML that is
/// not well-formed, and with the reason, if it cannot be read.
std::u16string explainProblem(const host::Path& file, const std::u16string& problem);

/// The sentence of `error`, which names a path once and of a file says what `explainProblem` does.
std::u16string explain(const host::UserException& error);

/// Writes `sentence`, made safe to show, to the standard error.
void reportError(const std::string& sentence);

/// Writes the exception being handled to the standard error: its sentence, and indented below it those nested causes
/// that say something new.
/// @return with what the process ends
Status reportCurrentException();

/// Writes the warnings (Warnings.hpp) to the standard error that no error so far has told as well; indented below the
/// last error if there was one.
void reportWarnings();

}  // namespace cli
