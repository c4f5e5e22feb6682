/// Records go to Boost.Log's core, and from there to the one sink of this library and to those of a program that uses
/// Boost.Log itself; at the end of the process, when Boost.Log is gone, to the one sink only. On standard error the
/// environment variable PROJECT_METADATA_LOG sets the least severity, "warning" by default.
#include "host/DiagnosticLogger.hpp"

#include <cstdlib>
#include <iostream>
#include <limits>
#include <mutex>
#include <utility>

#include <boost/log/attributes/value_extraction.hpp>
#include <boost/log/core.hpp>
#include <boost/log/keywords/channel.hpp>
#include <boost/log/keywords/severity.hpp>
#include <boost/log/sinks/basic_sink_backend.hpp>
#include <boost/log/sinks/unlocked_frontend.hpp>
#include <boost/log/sources/record_ostream.hpp>
#include <boost/log/sources/severity_channel_logger.hpp>
#include <boost/make_shared.hpp>

namespace host {

namespace logging = boost::log;

namespace {

struct Level {
    std::string_view name;
    int severity;
};

constexpr Level levels[] = {
    {"trace", static_cast<int>(Severity::trace)}, {"debug", static_cast<int>(Severity::debug)},
    {"info", static_cast<int>(Severity::info)},   {"warning", static_cast<int>(Severity::warning)},
    {"error", static_cast<int>(Severity::error)}, {"fatal", static_cast<int>(Severity::fatal)},
    {"off", std::numeric_limits<int>::max()},
};

std::string_view getName(int severity) {
    for (const Level& level : levels) {
        if (level.severity == severity)
            return level.name;
    }
    return "message";
}

int readLeastSeverity() {
    const char* name = secure_getenv("PROJECT_METADATA_LOG");
    if (name && *name) {
        for (const Level& level : levels) {
            if (level.name == name)
                return level.severity;
        }
        std::cerr << "warning: host: PROJECT_METADATA_LOG is \"" << name
                  << "\", and not one of trace, debug, info, warning, error, fatal and off\n";
    }
    return static_cast<int>(Severity::warning);
}

void writeToStandardError(const LogRecord& record) {
    static const int least = readLeastSeverity();
    if (static_cast<int>(record.severity) < least)
        return;
    // In one piece, for there may be other threads.
    std::string line(getName(static_cast<int>(record.severity)));
    line.append(": ").append(record.channel).append(": ").append(record.text).append("\n");
    std::cerr << line;
}

/// The sink that is set. Lives until the process is gone.
struct Target {
    std::mutex mutex;
    std::shared_ptr<const LogSink> sink = std::make_shared<const LogSink>(writeToStandardError);
};

Target& getTarget() {
    static Target& target = *new Target;
    return target;
}

void tell(const LogRecord& record) {
    const std::shared_ptr<const LogSink> sink = [] {
        const std::lock_guard lock(getTarget().mutex);
        return getTarget().sink;
    }();
    if (*sink)
        (*sink)(record);
}

class Backend : public logging::sinks::basic_sink_backend<logging::sinks::concurrent_feeding> {
public:
    static void consume(const logging::record_view& record) {
        const auto channel = logging::extract_or_default<std::string>("Channel", record, std::string());
        const auto text = logging::extract_or_default<std::string>("Message", record, std::string());
        tell({static_cast<Severity>(logging::extract_or_default<int>("Severity", record, 0)), channel, text});
    }
};

void addBackend() {
    using Sink = logging::sinks::unlocked_sink<Backend>;
    static const bool done = (logging::core::get()->add_sink(boost::make_shared<Sink>()), true);
    static_cast<void>(done);
}

/// Whether objects of Boost.Log that it made when they were first needed are gone.
bool isLoggingOver = false;

/// Made when such objects have been made, and therefore destroyed before them.
struct EndOfLogging {
    ~EndOfLogging() { isLoggingOver = true; }
};

}  // namespace

struct DiagnosticLogger::State {
    explicit State(const std::string& itsChannel) : channel(itsChannel), logger(logging::keywords::channel = channel) {}

    const std::string channel;
    logging::sources::severity_channel_logger_mt<int, std::string> logger;
};

DiagnosticLogger::DiagnosticLogger(const std::string& channel) {
    addBackend();
    state_ = std::make_unique<State>(channel);
}

DiagnosticLogger::~DiagnosticLogger() = default;

void DiagnosticLogger::setSink(LogSink sink) {
    auto shared = std::make_shared<const LogSink>(std::move(sink));
    const std::lock_guard lock(getTarget().mutex);
    getTarget().sink.swap(shared);
}

void DiagnosticLogger::log(Severity severity, std::string_view text) {
    const int level = static_cast<int>(severity);
    if (isLoggingOver) {
        tell({severity, state_->channel, text});
        return;
    }
    auto record = state_->logger.open_record(logging::keywords::severity = level);
    static const EndOfLogging opened;
    if (!record)
        return;
    logging::record_ostream stream(record);
    stream << text;
    stream.flush();
    state_->logger.push_record(std::move(record));
    static const EndOfLogging written;
}

}  // namespace host
