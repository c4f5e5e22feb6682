/// Where diagnostic records go: to one sink that a program sets, to those of Boost.Log that it has, and to standard
/// error in a program that sets none, such as `host_probe`.
#include "host/DiagnosticLogger.hpp"

#include "tests/host/Helpers.hpp"

#include <boost/log/core.hpp>
#include <boost/log/expressions.hpp>
#include <boost/log/utility/setup/console.hpp>

#include <sstream>

namespace {

TEST(DiagnosticLogger, RecordsGoToTheSinkThatIsSetAndToThoseOfBoostLog) {
    std::ostringstream ofBoost;
    const auto boostSink = boost::log::add_console_log(ofBoost);
    boostSink->set_formatter(boost::log::expressions::stream << boost::log::expressions::attr<std::string>("Channel")
                                                             << ' ' << boost::log::expressions::smessage << '|');
    std::ostringstream records;
    host::DiagnosticLogger logger("some::channel");
    host::DiagnosticLogger::setSink([&records, &logger](const host::LogRecord& record) {
        records << static_cast<int>(record.severity) << ' ' << record.channel << ' ' << record.text << '|';
        if (record.text == "outer")
            logger.log(host::Severity::info, "within");
    });
    testing::internal::CaptureStderr();
    logger.log(host::Severity::trace, "first");
    host::DiagnosticLogger("other").log(host::Severity::fatal, "\xC3\xA4");
    boost::log::core::get()->remove_sink(boostSink);
    logger.log(host::Severity::warning, "outer");
    host::DiagnosticLogger::setSink(nullptr);
    logger.log(host::Severity::fatal, "to nobody");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(records.str(), "2 some::channel first|12 other \xC3\xA4|8 some::channel outer|6 some::channel within|");
    // A console logger ends each record with a line break.
    EXPECT_EQ(ofBoost.str(), "some::channel first|\nother \xC3\xA4|\n");
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
