// The report's page, and the record of the run that it shows.
#include "tools/plc_sim/console/report_page.h"

#include <gmock/gmock.h>

#include "tests/support/frames.h"
#include "tests/tools/plc_sim/plc_sim_process.h"
#include "tests/tools/plc_sim/sim_support.h"
#include "tools/plc_sim/console/report_chart.h"

namespace plc_sim {
namespace {

using plc_test::kDirectoryStart;
using test::Bench;
using test::from_hex;
using test::HostSocket;
using test::PlcSimProcess;
using testing::HasSubstr;
using testing::Not;

constexpr std::time_t kBegan = 1767225600;  // 2026-01-01 00:00:00 UTC

struct ReportedLife {
  uint64_t now_ms = 5000;
  Bench bench{"D,INT,,,a,b,c,0,1,0,0,,DM1\n<b>&\"',INT,,,a,b,c,2,1,0,0,,\n"};
  AskLog asked{[this] { return now_ms; }};
  RunLog log{[this] { return now_ms; }, kBegan};
  Tally tally{[](const std::string&) {}};

  std::string page() { return report_page({"127.0.0.1:8500", {"tags<1>.csv"}, bench.store, asked, log, tally}); }
};

size_t count_of(const std::string& text, const std::string& part) {
  size_t count = 0;
  for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
  return count;
}

TEST(RunLog, LongRun_TakesNoMoreSlotsAndLosesNothing) {
  uint64_t now_ms = 0;
  RunLog log([&] { return now_ms; }, kBegan);
  for (; now_ms < 3600000; now_ms += 1000) {
    log.request(RequestKind::kRead);
    if (now_ms % 60000 == 0) log.fault("connection 1", "delay 5");
  }
  EXPECT_LE(log.slots().size(), RunLog::kMostSlots);
  uint64_t requests = 0;
  uint64_t faults = 0;
  for (const TimeSlot& slot : log.slots()) {
    requests += slot.requests();
    faults += slot.faults;
  }
  EXPECT_EQ(requests, 3600U);
  EXPECT_EQ(faults, 60U);
  EXPECT_EQ(log.requests(RequestKind::kRead), 3600U);
  EXPECT_EQ(log.slot_ms(), 51200U);
  EXPECT_EQ(log.slots().size(), (3599000 / 51200) + 1U);
}

TEST(RunLog, ViolationsBeyondTheRoom_AreCounted) {
  RunLog log([] { return uint64_t{0}; }, kBegan);
  for (int i = 0; i < 300; ++i) log.violation("connection 1", "wrong", Bytes(1000, 0xAB));
  EXPECT_EQ(log.violations().size(), RunLog::kMostKept);
  EXPECT_EQ(log.all_violations(), 300U);
  EXPECT_EQ(log.violations()[0].frame, Bytes(RunLog::kMostFrameBytes, 0xAB));
  EXPECT_EQ(log.violations()[0].frame_bytes, 1000U);
}

TEST(ReportPage, QuietRun_SaysSo) {
  ReportedLife run;
  run.now_ms += 65000;
  const std::string page = run.page();
  EXPECT_THAT(page, HasSubstr("<p class=\"verdict good\">No violation</p>"));
  EXPECT_THAT(page, HasSubstr("<dt>began</dt><dd>2026-01-01 00:00:00 UTC</dd>"));
  EXPECT_THAT(page, HasSubstr("<dt>ran for</dt><dd>1 min 5 s</dd>"));
  EXPECT_THAT(page, HasSubstr("<p>No host asked for anything.</p>"));
  EXPECT_THAT(page, Not(HasSubstr("<h2>Violations</h2>")));
  EXPECT_THAT(page, Not(HasSubstr("<svg")));
}

TEST(ReportPage, ViolationsComeFirst_WithTheBytesOfTheRequest) {
  ReportedLife run;
  run.now_ms += 250;
  run.tally.counts.violations = 1;
  run.log.request(RequestKind::kDirectoryStart);
  run.log.violation("connection 1, request 1 (directory start)", "zeros < 4", {0x00, 0x06, 0xFF});
  const std::string page = run.page();
  EXPECT_THAT(page, HasSubstr("<p class=\"verdict bad\">1 violation</p>"));
  EXPECT_THAT(page, HasSubstr("0.250 s</span></td><td>connection 1, request 1 (directory start)</td>"
                              "<td>zeros &lt; 4<br><code>00 06 FF</code></td>"));
  EXPECT_LT(page.find("<h2>Violations</h2>"), page.find("<h2>Requests</h2>"));
  EXPECT_THAT(page, HasSubstr("<td>directory start</td><td class=\"number\">1</td><td class=\"number\">100.0 %</td>"));
}

TEST(ReportPage, ListsThatAreTooLong_SayHowMuchIsMissing) {
  ReportedLife run;
  for (int i = 0; i < 250; ++i) run.log.fault("connection 1", "cut 5");
  const std::string page = run.page();
  EXPECT_EQ(count_of(page, "<td>cut 5</td>"), 200U);
  EXPECT_THAT(page, HasSubstr("<p>and 50 more</p>"));
}

// Names of hosts, of tag files and of files are text.
TEST(ReportPage, MarkupFromOutside_IsText) {
  ReportedLife run;
  run.asked.add({Asked::What::kRefused, "</td><script>x</script>\xE2\x80\xAE", nullptr});
  run.tally.counts.refused = 1;
  const std::string page = run.page();
  EXPECT_THAT(page, Not(HasSubstr("<script")));
  EXPECT_THAT(page, HasSubstr("<td>&lt;/td&gt;&lt;script&gt;x&lt;/script&gt;\\u{202e}</td>"));
  EXPECT_THAT(page, HasSubstr("<li>&lt;b&gt;&amp;&quot;&#39;</li>"));
  EXPECT_THAT(page, HasSubstr("<dd>tags&lt;1&gt;.csv</dd>"));
  EXPECT_THAT(page, HasSubstr("content=\"default-src 'none'; style-src 'unsafe-inline'\""));
}

TEST(ReportChart, Bars_AreAsHighAsTheirRequests) {
  uint64_t now_ms = 0;
  RunLog log([&] { return now_ms; }, kBegan);
  for (int i = 0; i < 10; ++i) log.request(RequestKind::kRead);
  now_ms = 150;
  for (int i = 0; i < 5; ++i) log.request(RequestKind::kWrite);
  log.violation("connection 1", "wrong", {});
  const std::string chart = report_chart(log);
  // 148 units are the ten requests that the highest bar has.
  EXPECT_THAT(chart, HasSubstr("<rect class=\"kind4\" x=\"62.0\" y=\"12.0\" width=\"31.9\" height=\"148.0\"/>"));
  EXPECT_THAT(chart, HasSubstr("<rect class=\"kind5\" x=\"94.9\" y=\"86.0\" width=\"31.9\" height=\"74.0\"/>"));
  EXPECT_EQ(count_of(chart, "<path class=\"violation\""), 2U);  // one of them in the legend
  EXPECT_EQ(count_of(chart, "<path class=\"fault\""), 0U);
}

TEST(ReportChart, Durations_AreShort) {
  EXPECT_EQ(duration_text(250), "0.250 s");
  EXPECT_EQ(duration_text(59999), "59.999 s");
  EXPECT_EQ(duration_text(125000), "2 min 5 s");
  EXPECT_EQ(duration_text(12000000), "3 h 20 min");
}

TEST(PlcSim, ReportNamedHtml_IsAPageOfTheRun) {
  const plc_test::TempDir folder;
  const std::string tags = folder.write("tags.csv", "D,INT,,,a,b,c,0,1,0,0,,DM1\n");
  PlcSimProcess sim({"--fault", "cut 5", "--report", folder.file("r.html"), tags});
  const uint16_t port = PlcSimProcess::port_in(sim.read_line());
  EXPECT_EQ(sim.command("report html"), "error: the page is for a file: plc-sim --report report.html\n");
  EXPECT_EQ(HostSocket(port).exchange(kDirectoryStart).size(), 5U);
  EXPECT_EQ(HostSocket(port).exchange("00 00 00 06 FF FF FF F9 00 07 0C 2C 00 00 00 00").size(), 16U);
  EXPECT_EQ(sim.finish(), 1);
  const std::string page = folder.read("r.html");
  EXPECT_THAT(page, testing::StartsWith("<!doctype html>\n"));
  EXPECT_THAT(page, HasSubstr("<td>cut 5</td><td>connection 1, request 1 (directory start)</td>"));
  EXPECT_THAT(page, HasSubstr("<code>00 00 00 06 FF FF FF F9 00 07 0C 2C 00 00 00 00</code>"));
  EXPECT_THAT(page, HasSubstr("<dt>listening on</dt><dd>127.0.0.1:" + std::to_string(port) + "</dd>"));
  EXPECT_THAT(page, HasSubstr("<li>D</li>"));
}

}  // namespace
}  // namespace plc_sim
