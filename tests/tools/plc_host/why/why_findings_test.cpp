// Tests of what is said of a value's road, where no program can be made to meet it.
#include "tools/plc_host/why/why_findings.h"

#include <gtest/gtest.h>

namespace plc_host {
namespace {

TEST(WhyFindings, RecordingThatIsCut_IsWorthKnowing) {
  WhyReport report;
  find_recording_bound(false, report);
  EXPECT_TRUE(report.findings.empty());
  find_recording_bound(true, report);
  ASSERT_EQ(report.findings.size(), 1U);
  EXPECT_FALSE(report.findings[0].is_fault);
  EXPECT_EQ(report.findings[0].what, "more came than the 64 MiB that are recorded: the exchanges end before it");
  EXPECT_EQ(report.findings[0].advice, "No read takes so much: see with tcpdump or tshark who sends it.");
}

}  // namespace
}  // namespace plc_host
