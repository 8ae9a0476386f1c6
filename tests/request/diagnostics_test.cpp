#include "dme/diagnostics.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "recorded_diagnostics.h"

namespace dme {
namespace {

using Reports = std::vector<std::string>;

TEST(DiagnosticsTest, AnInstalledHandlerReceivesEachReportWhole) {
    test::RecordedDiagnostics recorded;
    diagnose("first line\nsecond line\n");
    diagnose("another\n");
    EXPECT_EQ(recorded.reports, (Reports{"first line\nsecond line\n", "another\n"}));
}

TEST(DiagnosticsTest, SettingAHandlerReturnsTheOneItReplaces) {
    test::RecordedDiagnostics recorded;
    std::string seen;
    DiagnosticHandler replaced =
        setDiagnosticHandler([&seen](const std::string& text) { seen = text; });
    replaced("through the returned handler\n");
    diagnose("through the new handler\n");
    EXPECT_EQ(recorded.reports, Reports{"through the returned handler\n"});
    EXPECT_EQ(seen, "through the new handler\n");
    setDiagnosticHandler(replaced);
}

TEST(DiagnosticsTest, AnEmptyHandlerRestoresTheStandardErrorStream) {
    test::RecordedDiagnostics recorded;
    setDiagnosticHandler(DiagnosticHandler());
    testing::internal::CaptureStderr();
    diagnose("to standard error\n");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "to standard error\n");
    EXPECT_TRUE(recorded.reports.empty());
}

TEST(DiagnosticsTest, AHandlerMayItselfReport) {
    test::RecordedDiagnostics recorded;
    DiagnosticHandler recording = setDiagnosticHandler(DiagnosticHandler());
    setDiagnosticHandler([&recording](const std::string& text) {
        if (text == "outer\n") diagnose("inner\n");
        recording(text);
    });
    diagnose("outer\n");
    EXPECT_EQ(recorded.reports, (Reports{"inner\n", "outer\n"}));
    setDiagnosticHandler(recording);
}

}  // namespace
}  // namespace dme
