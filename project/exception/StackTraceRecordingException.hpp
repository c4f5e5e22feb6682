/// The base of exceptions that remember where they were raised.
#pragma once

#include <exception>
#include <string>

#include "host/StackTrace.hpp"
#include "project/Export.hpp"

namespace computils::exception {

/// Records the stack of the constructing thread. Does not change afterwards; may be read from any thread.
class PROJECT_METADATA_EXPORT StackTraceRecordingException : public std::exception {
public:
    StackTraceRecordingException();
    StackTraceRecordingException(const StackTraceRecordingException&) = default;
    StackTraceRecordingException& operator=(const StackTraceRecordingException&) = default;
    ~StackTraceRecordingException() override;

    /// A message for derived types to fill in; empty in the errors of this library, whose text is `what()`.
    const std::u16string& getMessage() const noexcept { return message_; }

    /// Where the object was constructed; copies keep it.
    const host::StackTrace& getStackTrace() const noexcept { return stackTrace_; }

protected:
    std::u16string message_;

private:
    host::StackTrace stackTrace_;
};

}  // namespace computils::exception
