// The report of what hosts ask for.
#include "tools/plc_sim/console/report.h"

#include <gmock/gmock.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "tests/support/frames.h"
#include "tests/tools/plc_sim/plc_sim_process.h"
#include "tests/tools/plc_sim/sim_support.h"

namespace plc_sim {
namespace {

using nlohmann::json;
using plc_test::kResolveD;
using test::Bench;
using test::PlcSimProcess;
using test::TemporaryFile;
using testing::HasSubstr;

constexpr const char* kReportTags =
    "D,INT,,,a,b,c,0,1,0,0,,DM1\nL,INT,[1..3],,a,b,c,1,0,0,5,MAIN,\nN,INT,,,a,b,c,2,1\n";

struct Logged {
  Logged() {
    bench.controller.set_observer([this](const Asked& asked) { log.add(asked); });
    // D twice, one second apart and read once; L[0] outside its bounds; Z, which nobody has.
    bench.ask(kResolveD);
    bench.ask("00 00 00 10 FF FF FF EF 00 01 1E 09 00 00 01 00 00 00 00 06 00 01 01 02 00 00");
    now_ms += 1000;
    bench.ask("00 00 00 0C FF FF FF F3 00 02 0C 28 00 01 00 00 00 01 00 01 00 44");
    bench.ask(
        "00 00 00 1A FF FF FF E5 00 03 0C 28 00 01 01 01 00 05 00 00 00 00 00 01 00 05 00 4C 00 5B 00 23 00 30 00 5D");
    bench.ask("00 00 00 0C FF FF FF F3 00 04 0C 28 00 01 00 00 00 01 00 01 00 5A");
  }
  uint64_t now_ms = 5000;
  Bench bench{kReportTags};
  AskLog log{[this] { return now_ms; }};
};

TEST(Report, Json_HasWhatWasAskedHowOftenAndHowFast) {
  Logged logged;
  const json report = json::parse(make_report(logged.bench.store, logged.log, "json"));
  ASSERT_EQ(report.at("asked").size(), 3U);
  const json& d = report.at("asked").at(0);
  EXPECT_EQ(d.at("name"), "D");
  EXPECT_EQ(d.at("asked"), 2);
  EXPECT_EQ(d.at("read"), 1);
  EXPECT_EQ(d.at("per_second"), 1.0);
  EXPECT_EQ(d.at("outcome"), "served");
  EXPECT_EQ(report.at("asked").at(1).at("name"), "MAIN/L[0]");
  EXPECT_TRUE(report.at("asked").at(1).at("per_second").is_null()) << "asked for once: there is no rate";
  EXPECT_EQ(report.at("asked").at(1).at("outcome"), "outside");
  EXPECT_EQ(report.at("asked").at(2).at("outcome"), "refused");
  EXPECT_TRUE(report.at("asked").at(2).at("tag").is_null());
  EXPECT_EQ(report.at("never_asked"), json::array({"N"}));
  EXPECT_EQ(report.at("programs"), json::array({{{"number", 5}, {"name", "MAIN"}}}));
}

TEST(Report, Csv_HasOneLineForEachName) {
  Logged logged;
  EXPECT_EQ(make_report(logged.bench.store, logged.log, "csv"),
            "name,tag,type,outcome,asked,read,written,per_second\n"
            "D,D,INT,served,2,1,0,1.0\n"
            "MAIN/L[0],MAIN/L,INT,outside,1,0,0,-\n"
            "Z,,,refused,1,0,0,-\n"
            "N,N,,never,0,0,0,-\n");
}

TEST(Report, Text_NamesWhatWasNeverAskedFor) {
  Logged logged;
  const std::string text = make_report(logged.bench.store, logged.log, "text");
  EXPECT_THAT(text,
              HasSubstr("D                                        INT            2       1       0    1.0  served"));
  EXPECT_THAT(text, HasSubstr("never asked for:\n  N\n"));
}

TEST(Report, Text_QuotesNamesWithBlanks) {
  Bench bench("D,INT,,,a,b,c,0,0,0,1,Main ,\nE,INT,,,a,b,c,0,0,0,2,Main,\n");
  AskLog log([] { return uint64_t{0}; });
  const std::string text = make_report(bench.store, log, "text");
  EXPECT_THAT(text, HasSubstr("  'Main /D'\n"));
  EXPECT_THAT(text, HasSubstr("  Main/E\n"));
  EXPECT_THAT(text, HasSubstr(" 'Main '\n"));
  EXPECT_THAT(text, HasSubstr(" Main\n"));
}

TEST(Report, UnknownFormat_IsRefused) {
  Logged logged;
  EXPECT_THROW(make_report(logged.bench.store, logged.log, "xml"), std::invalid_argument);
  EXPECT_EQ(report_format_for("a.json"), "json");
  EXPECT_EQ(report_format_for("a.csv"), "csv");
  EXPECT_EQ(report_format_for("a.html"), "html");
  EXPECT_EQ(report_format_for("report"), "text");
}

TEST(Report, EndingInCapitals_SetsTheFormToo) {
  EXPECT_EQ(report_format_for("REPORT.HTML"), "html");
  EXPECT_EQ(report_format_for("report.Htm"), "html");
  EXPECT_EQ(report_format_for("report.JSON"), "json");
  EXPECT_EQ(report_format_for("report.Csv"), "csv");
}

TEST(Report, RefusedLocalName_SaysWhereElseTheNameIs) {
  Bench bench(kReportTags);
  const Answer answer =
      bench.ask("00 00 00 12 FF FF FF ED 00 00 0C 28 00 01 01 01 00 05 00 00 00 00 00 01 00 01 00 44");
  EXPECT_THAT(answer.findings.refused, testing::ElementsAre("no variable MAIN/D; there is one global"));
}

TEST(PlcSim, ReportFile_IsWrittenAtTheEnd) {
  TemporaryFile tags(kReportTags);
  TemporaryFile report("");
  PlcSimProcess sim({"--report", report.path(), tags.path()});
  sim.read_line();
  EXPECT_THAT(sim.command("report csv"), HasSubstr("D,D,,never"));
  EXPECT_THAT(sim.command("report xml"), HasSubstr("error: "));
  EXPECT_EQ(sim.finish(), 0);
  std::ifstream stream(report.path());
  std::ostringstream text;
  text << stream.rdbuf();
  EXPECT_THAT(text.str(), HasSubstr("never asked for:\n  D\n"));
  EXPECT_EQ(PlcSimProcess({"--report", "/nonexistent/r", tags.path()}).finish(), 2);
}

}  // namespace
}  // namespace plc_sim
