/// Records go to Boost.Log's core, and so to the sinks of a program that uses Boost.Log itself. Where nobody else in
/// the process was linked with it, nobody can have configured it, and the records are written to standard error; the
/// environment variable PROJECT_METADATA_LOG then sets the least severity, "warning" by default.
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

/// Writes to standard error for as long as it lives.
class StandardErrorSink {
public:
    StandardErrorSink() : sink_(boost::make_shared<Sink>()) {
        sink_->locked_backend()->add_stream(boost::shared_ptr<std::ostream>(&std::cerr, boost::null_deleter()));
        sink_->set_formatter(&writeLine);
        sink_->set_filter([least = readLeastSeverity()](const logging::attribute_value_set& values) {
            return logging::extract_or_default<int>("Severity", values, 0) >= least;
        });
        logging::core::get()->add_sink(sink_);
    }

    ~StandardErrorSink() { logging::core::get()->remove_sink(sink_); }

    StandardErrorSink(const StandardErrorSink&) = delete;
    StandardErrorSink& operator=(const StandardErrorSink&) = delete;

private:
    using Sink = logging::sinks::synchronous_sink<logging::sinks::text_ostream_backend>;
    boost::shared_ptr<Sink> sink_;
};

void useStandardErrorUnlessConfigured() {
    static const auto sink = isLinkedByOthers("libboost_log.so") ? nullptr : std::make_unique<StandardErrorSink>();
}

}  // namespace

struct DiagnosticLogger::State {
    explicit State(const std::string& channel) : logger(logging::keywords::channel = channel) {}

    logging::sources::severity_channel_logger_mt<int, std::string> logger;
};

DiagnosticLogger::DiagnosticLogger(const std::string& channel) {
    useStandardErrorUnlessConfigured();
    state_ = std::make_unique<State>(channel);
}

DiagnosticLogger::~DiagnosticLogger() = default;

void DiagnosticLogger::log(Severity severity, std::string_view text) {
    BOOST_LOG_SEV(state_->logger, static_cast<int>(severity)) << text;
}

}  // namespace host
