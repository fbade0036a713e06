// Tests of the watch command's log, with the real library and a simulator.
#include <sys/resource.h>

#include "tests/tools/plc_host/program_fixture.h"

namespace {

using namespace plc_host_test;

class LogProgramTest : public ProgramTest {
 protected:
  // Rows from the name on, behind the stamps.
  std::vector<std::string> rows() {
    std::vector<std::string> rows = lines_of(file_text(path("log.csv")));
    for (std::string& row : rows) row.erase(0, row.find(','));
    return rows;
  }
};

TEST_F(LogProgramTest, Changes_AreLoggedBesideTheOutput) {
  const Outcome outcome =
      run_on_simulator({"watch", "Speed", "Table[0..1]", "--rounds", "2", "--interval", "1", "--log", path("log.csv")});
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_THAT(outcome.out, HasSubstr(" good Speed = 0\n"));
  ASSERT_EQ(rows().size(), 6U);
  EXPECT_EQ(rows()[0], ",name,value,state,reason");
  EXPECT_THAT(rows()[1], StartsWith(",,,started,\"2 variables of 127.0.0.1:"));
  EXPECT_THAT(rows()[1], EndsWith(", every 1 ms\""));
  EXPECT_EQ(rows()[2], ",Speed,0,good,");
  EXPECT_EQ(rows()[3], ",Table[0],0,good,");
  EXPECT_EQ(rows()[4], ",Table[1],0,good,");
  EXPECT_EQ(rows()[5], ",,,ended,");
}

TEST_F(LogProgramTest, ControllerThatIsAway_IsLoggedWithoutAValue) {
  const Outcome outcome = run({"watch", "Speed", "--rounds", "2", "--interval", "1", "--address", "127.0.0.1", "--port",
                               port_, "--tags", path("machine.csv"), "--log", path("log.csv"), "--log-rounds"});
  EXPECT_EQ(outcome.code, 7) << outcome.err;
  ASSERT_EQ(rows().size(), 6U);
  EXPECT_THAT(rows()[2], StartsWith(",,,lost,Speed: "));
  EXPECT_THAT(rows()[3], StartsWith(",Speed,,no-connection,"));
  EXPECT_EQ(rows()[4], rows()[3]);
}

TEST_F(LogProgramTest, FileThatMayNotGrow_EndsWithACodeAndAWholeRow) {
  struct rlimit before {};
  getrlimit(RLIMIT_FSIZE, &before);
  struct rlimit small = before;
  small.rlim_cur = 4096;
  setrlimit(RLIMIT_FSIZE, &small);
  std::vector<std::string> words =
      host_words({"watch", "Table", "--rounds", "100", "--interval", "1", "--log-rounds", "--log", path("log.csv"),
                  "--address", "127.0.0.1", "--port", port_, "--tags", path("machine.csv")});
  const Outcome outcome = run_words(words);
  setrlimit(RLIMIT_FSIZE, &before);
  EXPECT_EQ(outcome.code, 8) << outcome.err;
  EXPECT_EQ(count_of(outcome.err, "log.csv: File too large; rows that are missing are counted\n"), 1U) << outcome.err;
  EXPECT_THAT(outcome.err, HasSubstr(" could not be written to " + path("log.csv") + "\n"));
  EXPECT_THAT(file_text(path("log.csv")), EndsWith("\n"));
  EXPECT_THAT(rows().back(), StartsWith(",Table,,no-connection,"));
}

TEST_F(LogProgramTest, ForeignFile_IsRefused) {
  write_file("log.csv", "a letter\n");
  const Outcome outcome = run_on_simulator({"watch", "Speed", "--log", path("log.csv")});
  EXPECT_EQ(outcome.code, 8);
  EXPECT_THAT(outcome.err,
              EndsWith("plc-host: cannot write " + path("log.csv") + ": it is there and is not a log of plc-host\n"));
  EXPECT_EQ(file_text(path("log.csv")), "a letter\n");
}

TEST_F(LogProgramTest, FileThatStandardOutputGoesTo_IsRefused) {
  std::vector<std::string> words = {"/bin/sh", "-c", "log=$1; shift; exec \"$@\" >>\"$log\"", "sh", path("log.csv")};
  for (const std::string& word : host_words({"watch", "Speed", "--rounds", "1", "--log", path("log.csv"), "--address",
                                             "127.0.0.1", "--port", port_, "--tags", path("machine.csv")})) {
    words.push_back(word);
  }
  const Outcome outcome = run_words(words);
  EXPECT_EQ(outcome.code, 8);
  EXPECT_EQ(outcome.err,
            "plc-host: cannot write " + path("log.csv") + ": standard output goes there too. Try: name another file\n");
  EXPECT_EQ(file_text(path("log.csv")), "");
}

TEST_F(LogProgramTest, Mistakes_AreTold) {
  const std::vector<std::pair<std::vector<std::string>, std::string>> mistakes = {
      {{"--rotate", "10MB"}, "--rotate requires --log"},
      {{"--log", "x.csv", "--keep", "3"}, "--keep requires --rotate"},
      {{"--log", "x.csv", "--rotate", "10"},
       "--rotate 10: give a size from 1kB to 1000GB, daily, or both as 10MB,daily"},
      {{"--log", "x.csv", "--rotate", "daily,"},
       "--rotate daily,: give a size from 1kB to 1000GB, daily, or both as 10MB,daily"},
      {{"--log", "x.csv", "--deadband", "-1"}, "--deadband -1: give a number of 0 or more"},
      {{"--log", "x.csv", "--deadband", "nan"}, "--deadband nan: give a number of 0 or more"},
      {{"--log", ""}, "--log: name a file"},
  };
  for (const auto& [words, message] : mistakes) {
    std::vector<std::string> all = {"watch", "Speed"};
    all.insert(all.end(), words.begin(), words.end());
    const Outcome outcome = run_on_simulator(all);
    EXPECT_EQ(outcome.code, 2) << message;
    EXPECT_THAT(outcome.err, StartsWith("plc-host: " + message));
  }
}

}  // namespace
