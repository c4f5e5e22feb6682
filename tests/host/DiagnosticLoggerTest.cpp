/// Where diagnostic records go: to the sinks of a program that uses Boost.Log, as this one does, and to standard error
/// otherwise, as in the program `host_probe`.
#include "host/DiagnosticLogger.hpp"

#include "tests/host/Helpers.hpp"

#include <boost/log/core.hpp>
#include <boost/log/expressions.hpp>
#include <boost/log/utility/setup/console.hpp>

#include <sstream>

namespace {

TEST(DiagnosticLogger, ProgramWithBoostLogGetsEveryRecordAndNobodyElseDoes) {
    std::ostringstream records;
    const auto sink = boost::log::add_console_log(records);
    sink->set_formatter(boost::log::expressions::stream << boost::log::expressions::attr<std::string>("Channel") << ' '
                                                        << boost::log::expressions::smessage);
    testing::internal::CaptureStderr();
    host::DiagnosticLogger("some::channel").log(host::Severity::trace, "a");
    host::DiagnosticLogger("other").log(host::Severity::fatal, "\xC3\xA4");
    boost::log::core::get()->remove_sink(sink);
    EXPECT_EQ(records.str(), "some::channel a\nother \xC3\xA4\n");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(DiagnosticLogger, OtherProgramsGetWarningsOnStandardErrorUnlessTheEnvironmentSaysOtherwise) {
    const auto log = [](const std::string& level) {
        return test::runCommand("PROJECT_METADATA_LOG=" + level + " " HOST_PROBE " log 2>&1 >/dev/null");
    };
    const std::string warnings = "warning: a::channel: something is odd\nerror: a::channel: something is wrong\n";
    EXPECT_EQ(log(""), warnings);
    EXPECT_EQ(log("info"), "info: a::channel: something happens\n" + warnings);
    EXPECT_EQ(log("off"), "");
    EXPECT_EQ(log("loud").find("warning: host: PROJECT_METADATA_LOG is \"loud\", and not one of trace, "), 0U);
}

}  // namespace
