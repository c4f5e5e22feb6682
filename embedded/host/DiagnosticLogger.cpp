/// Records go to Boost.Log's core, and so to the sinks of a program that uses Boost.Log itself. Where nobody else in
/// the process was linked with it, nobody can have configured it, and the records are written to standard error; the
/// environment variable PROJECT_METADATA_LOG then sets the least severity, "warning" by default. At the end of the
/// process, when Boost.Log is gone, they are written there in any case.
#include "host/DiagnosticLogger.hpp"

#include "embedded/host/LoadedObjects.hpp"

#include <boost/core/null_deleter.hpp>
#include <boost/log/attributes/value_extraction.hpp>
#include <boost/log/core.hpp>
#include <boost/log/keywords/channel.hpp>
#include <boost/log/keywords/severity.hpp>
#include <boost/log/sinks/sync_frontend.hpp>
#include <boost/log/sinks/text_ostream_backend.hpp>
#include <boost/log/sources/record_ostream.hpp>
#include <boost/log/sources/severity_channel_logger.hpp>
#include <boost/log/utility/formatting_ostream.hpp>
#include <boost/make_shared.hpp>

#include <cstdlib>
#include <iostream>
#include <limits>

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

void writeLine(const logging::record_view& record, logging::formatting_ostream& line) {
    line << getName(logging::extract_or_default<int>("Severity", record, 0)) << ": "
         << logging::extract_or_default<std::string>("Channel", record, std::string()) << ": "
         << logging::extract_or_default<std::string>("Message", record, std::string());
}

void writeToStandardError() {
    using Sink = logging::sinks::synchronous_sink<logging::sinks::text_ostream_backend>;
    const auto sink = boost::make_shared<Sink>();
    sink->locked_backend()->add_stream(boost::shared_ptr<std::ostream>(&std::cerr, boost::null_deleter()));
    sink->set_formatter(&writeLine);
    sink->set_filter([least = readLeastSeverity()](const logging::attribute_value_set& values) {
        return logging::extract_or_default<int>("Severity", values, 0) >= least;
    });
    logging::core::get()->add_sink(sink);
}

void useStandardErrorUnlessConfigured() {
    static const bool done = (isLinkedByOthers("libboost_log.so") ? void() : writeToStandardError(), true);
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
    useStandardErrorUnlessConfigured();
    state_ = std::make_unique<State>(channel);
}

DiagnosticLogger::~DiagnosticLogger() = default;

void DiagnosticLogger::log(Severity severity, std::string_view text) {
    const int level = static_cast<int>(severity);
    if (isLoggingOver) {
        if (level >= readLeastSeverity())
            std::cerr << getName(level) << ": " << state_->channel << ": " << text << '\n';
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
