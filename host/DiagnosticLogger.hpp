/// A log channel for diagnostic records. Every operation may be called from any thread.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "host/Export.hpp"

namespace host {

/// How serious a record is: the higher, the more. The values are part of the interface.
enum class Severity : int { trace = 2, debug = 4, info = 6, warning = 8, error = 10, fatal = 12 };

struct LogRecord {
    Severity severity;
    std::string_view channel;
    std::string_view text;  ///< in UTF-8, like the channel
};

/// Takes a record. Called on the thread that writes it, also by several at once; must not throw.
using LogSink = std::function<void(const LogRecord& record)>;

class HOST_EXPORT DiagnosticLogger {
public:
    /// From now on the records of the whole process go to `sink`, or to none if that is null. Until this is called,
    /// they go to standard error. What a program has configured in the logging library below gets them in any case.
    static void setSink(LogSink sink);

    /// A logger whose records bear the name `channel`.
    explicit DiagnosticLogger(const std::string& channel);
    ~DiagnosticLogger();

    DiagnosticLogger(const DiagnosticLogger&) = delete;
    DiagnosticLogger& operator=(const DiagnosticLogger&) = delete;

    /// Writes one record, if logging is enabled and the filters admit this channel and severity.
    void log(Severity severity, std::string_view text);

private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace host
