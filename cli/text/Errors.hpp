/// The command's own errors, and how all errors are shown.
#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>

#include "cli/Names.hpp"
#include "operations/Errors.hpp"

namespace cli {

/// The exit statuses, on which scripts rely.
enum class Status { done = 0, foundProblems = 1, usage = 2, failure = 3, notAProject = 4, interrupted = 130 };

/// The command cannot go on. `what()` is a sentence in UTF-8; the paths in it are bytes as the disk has them.
class CommandError : public std::runtime_error {
public:
    CommandError(Status status, const std::string& sentence);

    /// With what the process ends.
    Status status() const { return status_; }

private:
    Status status_;
};

/// Writes `sentence`, made safe to show, to the standard error.
void reportError(const std::string& sentence);

/// Writes the exception being handled to the standard error: its sentence, and indented below it those nested causes
/// that say something new.
/// @return with what the process ends
Status reportCurrentException();

/// With what the process would end for the exception being handled.
Status statusOfCurrentException();

/// To be called while an error of reading is handled that does not end the command: tells it after all output so far.
void reportReadError();

/// Tells how many paths could not be read. @return `status`, or `Status::foundProblems` if there are any
Status reportUnreadable(std::size_t count, Status status = Status::done);

/// Writes the warnings (Warnings.hpp) to the standard error that no error so far has told as well; indented below the
/// last error if there was one.
void reportWarnings();

}  // namespace cli
