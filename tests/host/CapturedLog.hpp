/// The diagnostic records, in a sink of this program's own.
#pragma once

#include "host/DiagnosticLogger.hpp"

#include <boost/core/null_deleter.hpp>
#include <boost/log/attributes/value_extraction.hpp>
#include <boost/log/core.hpp>
#include <boost/log/sinks/sync_frontend.hpp>
#include <boost/log/sinks/text_ostream_backend.hpp>
#include <boost/make_shared.hpp>

#include <sstream>
#include <string>

namespace test {

/// Collects what is logged as long as it lives: severity, channel and text, one line a record.
class CapturedLog {
public:
    CapturedLog() {
        sink_->locked_backend()->add_stream(boost::shared_ptr<std::ostream>(&stream_, boost::null_deleter()));
        sink_->set_formatter([](const boost::log::record_view& record, boost::log::formatting_ostream& line) {
            line << boost::log::extract_or_default<int>("Severity", record, -1) << ' '
                 << boost::log::extract_or_default<std::string>("Channel", record, "none") << ' '
                 << boost::log::extract_or_default<std::string>("Message", record, "none");
        });
        boost::log::core::get()->add_sink(sink_);
    }

    ~CapturedLog() { boost::log::core::get()->remove_sink(sink_); }

    CapturedLog(const CapturedLog&) = delete;
    CapturedLog& operator=(const CapturedLog&) = delete;

    std::string text() const { return stream_.str(); }

    /// Leaves out what is less serious.
    void setLeastSeverity(host::Severity severity) {
        sink_->set_filter([least = static_cast<int>(severity)](const boost::log::attribute_value_set& values) {
            return boost::log::extract_or_default<int>("Severity", values, 0) >= least;
        });
    }

private:
    using Sink = boost::log::sinks::synchronous_sink<boost::log::sinks::text_ostream_backend>;
    boost::shared_ptr<Sink> sink_ = boost::make_shared<Sink>();
    std::ostringstream stream_;
};

}  // namespace test
