#include "project/exception/StackTraceRecordingException.hpp"

namespace computils::exception {

StackTraceRecordingException::StackTraceRecordingException() : stackTrace_(host::StackTrace::capture(0)) {}

StackTraceRecordingException::~StackTraceRecordingException() = default;

}  // namespace computils::exception
