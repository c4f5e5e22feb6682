/// The errors of operations, and how files that cannot be read are explained.
///
/// All functions may be called from any thread.
#pragma once

#include <stdexcept>
#include <string>

#include "host/MessageException.hpp"
#include "host/Path.hpp"

namespace operations {

/// By what a caller may want to tell errors apart.
enum class ErrorKind {
    failure,       ///< it could not be done
    usage,         ///< what was asked for cannot be asked for, or not of this project
    notAProject,   ///< there is no such project
    foundProblems  ///< it has been done, but something is left that somebody must look at
};

/// An operation cannot go on. `what()` is a sentence in UTF-8; the paths in it are bytes as the disk has them.
class OperationError : public std::runtime_error {
public:
    OperationError(ErrorKind kind, const std::string& sentence) : std::runtime_error(sentence), kind_(kind) {}

    ErrorKind kind() const { return kind_; }

private:
    ErrorKind kind_;
};

/// A path for an error sentence: its bytes, in quotes.
std::string quoted(const host::Path& path);

/// What is wrong with `file`, of which a store says `problem`, which may be empty: with the line, if it is XML that is
/// not well-formed, and with the reason, if it cannot be read.
std::u16string explainProblem(const host::Path& file, const std::u16string& problem);

/// The sentence of `error`, which names a path once and of a file says what `explainProblem` does.
std::u16string explain(const host::UserException& error);

}  // namespace operations
