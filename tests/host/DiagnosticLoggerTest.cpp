/// Where diagnostic records go: to the sinks of a program that uses Boost.Log, as this one does, and to standard error
/// otherwise, as in the program `host_probe`.
#include "host/DiagnosticLogger.hpp"

#include "tests/host/CapturedLog.hpp"
#include "tests/host/Helpers.hpp"

#include <gtest/gtest.h>

#include <string>

using host::DiagnosticLogger;
using host::Severity;

namespace {

TEST(ProgramWithBoostLog, GetsEveryRecordAndNobodyElseDoes) {
    testing::internal::CaptureStderr();
    testing::internal::CaptureStdout();
    const test::CapturedLog log;
    DiagnosticLogger logger("some::channel");
    logger.log(Severity::trace, "a");
    logger.log(Severity::warning, "b\xC3\xA4");
    DiagnosticLogger("other").log(Severity::fatal, "c");
    EXPECT_EQ(log.text(), "2 some::channel a\n8 some::channel b\xC3\xA4\n12 other c\n");
    EXPECT_EQ(testing::internal::GetCapturedStderr() + testing::internal::GetCapturedStdout(), "");
}

TEST(ProgramWithBoostLog, DecidesWhatIsLogged) {
    test::CapturedLog log;
    DiagnosticLogger logger("channel");
    log.setLeastSeverity(Severity::error);
    logger.log(Severity::warning, "filtered");
    boost::log::core::get()->set_logging_enabled(false);
    logger.log(Severity::fatal, "disabled");
    boost::log::core::get()->set_logging_enabled(true);
    logger.log(Severity::fatal, "admitted");
    EXPECT_EQ(log.text(), "12 channel admitted\n");
}

TEST(ProgramWithoutBoostLog, RecordsGoToStandardError) {
    const auto log = [](const std::string& level) {
        return test::runCommand("PROJECT_METADATA_LOG=" + level + " " HOST_PROBE " log 2>&1 >/dev/null");
    };
    const std::string warning = "warning: a::channel: something is odd\n";
    const std::string error = "error: a::channel: something is wrong\n";
    EXPECT_EQ(log(""), warning + error);
    EXPECT_EQ(log("info"), "info: a::channel: something happens\n" + warning + error);
    EXPECT_EQ(log("error"), error);
    EXPECT_EQ(log("off"), "");
    EXPECT_EQ(log("loud").find("warning: host: PROJECT_METADATA_LOG is \"loud\""), 0U);
    EXPECT_NE(log("loud").find('\n' + warning + error), std::string::npos);
}

}  // namespace
