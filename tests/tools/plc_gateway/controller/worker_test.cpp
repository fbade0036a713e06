// The controller's worker with a plc-sim as its controller: what it reads, what it writes, and what becomes of both
// when the controller is gone.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <condition_variable>
#include <filesystem>
#include <memory>
#include <mutex>

#include "tests/support/sim_process.h"
#include "tests/support/temp_dir.h"
#include "tests/tools/plc_gateway/tag_line.h"
#include "tools/plc_gateway/config/config.h"
#include "tools/plc_gateway/controller/controller_worker.h"
#include "tools/plc_gateway/sparkplug/payload.h"

namespace plc_gateway_test {
namespace {

using plc_client::Input;
using plc_client::Outcome;
using plc_client::Reason;
using plc_gateway::CommandRule;
using plc_gateway::ControllerWorker;
using plc_gateway::DataType;
using plc_gateway::Piece;
using plc_gateway::ReadResult;
using plc_gateway::Sample;
using plc_gateway::Variable;
using plc_gateway::WriteOutcome;
using testing::Each;
using testing::ElementsAre;
using testing::Field;
using testing::HasSubstr;
using testing::SizeIs;

Variable variable(const std::string& name, const std::string& type, DataType code, std::vector<size_t> shape = {},
                  size_t group = 0) {
  return {name, type, code, std::move(shape), group, 0};
}

// What the loop is in the gateway: it sleeps until it is woken.
class Bell {
 public:
  void ring() {
    const std::lock_guard<std::mutex> hold(lock_);
    is_rung_ = true;
    rung_.notify_one();
  }
  void wait() {
    std::unique_lock<std::mutex> hold(lock_);
    rung_.wait(hold, [this] { return is_rung_; });
    is_rung_ = false;
  }

 private:
  std::mutex lock_;
  std::condition_variable rung_;
  bool is_rung_ = false;
};

class WorkerTest : public testing::Test {
 protected:
  void start(const std::string& tags, const std::vector<Variable>& variables, std::vector<CommandRule> rules = {}) {
    folder_.write("PLC7F000001_0.csv", tags);
    sim_ = std::make_unique<plc_test::RunningSim>(
        PLC_TEST_SIMULATOR, std::vector<std::string>{"--sentinel", folder_.file("PLC7F000001_0.csv")});
    variables_ = variables;
    make_worker(std::move(rules));
  }
  void make_worker(std::vector<CommandRule> rules = {}, const std::string& driver = PLC_TEST_GUARDED,
                   const std::string& address = "127.0.0.1", const std::string& tag_address = "127.0.0.1") {
    plc_client::Options options;
    options.address = address;
    options.port = sim_->port();
    options.tags = {folder_.path()};
    options.driver = driver;
    options.reply_timeout_s = 1;
    options.first_pause = std::chrono::milliseconds(0);
    worker_ = std::make_unique<ControllerWorker>(options, tag_address, variables_, std::move(rules),
                                                 [this] { bell_.ring(); });
  }
  template <typename Result>
  Result result() {
    bell_.wait();
    std::vector<ControllerWorker::Result> results = worker_->take_results();
    EXPECT_THAT(results, SizeIs(1));
    return std::get<Result>(std::move(results.at(0)));
  }
  ReadResult read(size_t piece) {
    worker_->start_read(piece);
    return result<ReadResult>();
  }
  // Of all pieces, by the index of the variable.
  std::vector<Sample> read_all() {
    std::vector<Sample> all(variables_.size());
    for (size_t piece = 0; piece < worker_->pieces().size(); ++piece) {
      for (Sample& sample : read(piece).samples) all[sample.variable] = std::move(sample);
    }
    return all;
  }
  WriteOutcome write(size_t rule, const Input& value) {
    worker_->start_write({rule, value});
    return result<WriteOutcome>();
  }

  plc_test::TempDir folder_;
  std::unique_ptr<plc_test::RunningSim> sim_;
  std::vector<Variable> variables_;
  Bell bell_;
  std::unique_ptr<ControllerWorker> worker_;
};

CommandRule rule_for(const std::string& name, bool verify) {
  CommandRule rule;
  rule.name = name;
  rule.verify = verify;
  return rule;
}

TEST_F(WorkerTest, EveryType_IsReadAsItsBits) {
  start(tag_line("Flag", "BOOL") + tag_line("Int", "INT") + tag_line("Dint", "DINT") + tag_line("Lint", "LINT") +
            tag_line("Uint", "UINT") + tag_line("Udint", "UDINT") + tag_line("Ulint", "ULINT") +
            tag_line("Word", "WORD") + tag_line("Dword", "DWORD") + tag_line("Lword", "LWORD") +
            tag_line("Real", "REAL") + tag_line("Lreal", "LREAL") + tag_line("Text", "STRING", "", "20") +
            tag_line("Step", "INT", "", "", "Main"),
        {variable("Flag", "BOOL", DataType::kBoolean), variable("Int", "INT", DataType::kInt16),
         variable("Dint", "DINT", DataType::kInt32), variable("Lint", "LINT", DataType::kInt64),
         variable("Uint", "UINT", DataType::kUInt16), variable("Udint", "UDINT", DataType::kUInt32),
         variable("Ulint", "ULINT", DataType::kUInt64), variable("Word", "WORD", DataType::kUInt16),
         variable("Dword", "DWORD", DataType::kUInt32), variable("Lword", "LWORD", DataType::kUInt64),
         variable("Real", "REAL", DataType::kFloat), variable("Lreal", "LREAL", DataType::kDouble),
         variable("Text", "STRING(20)", DataType::kString), variable("Main/Step", "INT", DataType::kInt16)});
  for (const char* command :
       {"set Flag true", "set Int -2", "set Dint -3", "set Lint -4", "set Uint 65535", "set Udint 4294967295",
        "set Ulint 18446744073709551615", "set Word 0xABCD", "set Dword 0xABCDEF01", "set Lword 0xABCDEF0123456789",
        "set Real 1.5", "set Lreal -2.5", "set Text caf\xC3\xA9", "set Main/Step 7"}) {
    sim_->tell(command);
  }
  std::vector<uint64_t> bits;
  const plc_gateway::Ms before = plc_gateway::wall_ms_of(std::chrono::system_clock::now());
  const std::vector<Sample> samples = read_all();
  for (const Sample& sample : samples) {
    EXPECT_TRUE(sample.good) << sample.error;
    EXPECT_GE(sample.time, before);
    EXPECT_LE(sample.time, plc_gateway::wall_ms_of(std::chrono::system_clock::now()));
    bits.push_back(sample.bits);
  }
  EXPECT_THAT(bits, ElementsAre(1, 0xFFFE, 0xFFFFFFFD, 0xFFFFFFFFFFFFFFFC, 0xFFFF, 0xFFFFFFFF, 0xFFFFFFFFFFFFFFFF,
                                0xABCD, 0xABCDEF01, 0xABCDEF0123456789, 0x3FC00000, 0xC004000000000000, 0, 7));
  EXPECT_EQ(samples[12].bytes, "caf\xC3\xA9");
}

TEST_F(WorkerTest, Arrays_ArePackedAsTheStandardHasThem) {
  start(tag_line("Ints", "INT", "[0..2]") + tag_line("Grid", "DINT", "[0..1_0..1]") +
            tag_line("Bits", "BOOL", "[0..9]") + tag_line("Longs", "LINT", "[0..1]") +
            tag_line("Reals", "REAL", "[0..1]"),
        {variable("Ints", "INT[0..2]", DataType::kInt16Array, {3}),
         variable("Grid", "DINT[0..1,0..1]", DataType::kInt32Array, {2, 2}),
         variable("Bits", "BOOL[0..9]", DataType::kBooleanArray, {10}),
         variable("Longs[1]", "LINT[0..1]", DataType::kInt64),
         variable("Reals", "REAL[0..1]", DataType::kFloatArray, {2})});
  for (const char* command :
       {"set Ints[0] 1", "set Ints[1] -1", "set Ints[2] 3", "set Grid[0,0] 1", "set Grid[0,1] 2", "set Grid[1,0] 3",
        "set Grid[1,1] 4", "set Longs[1] 5", "set Reals[0] 1.5", "set Reals[1] 0"}) {
    sim_->tell(command);
  }
  for (int bit = 0; bit < 10; ++bit) {
    sim_->tell("set Bits[" + std::to_string(bit) + "] " + (bit == 0 || bit == 9 ? "true" : "false"));
  }
  const std::vector<Sample> samples = read_all();
  EXPECT_EQ(samples[0].bytes, std::string("\x01\x00\xFF\xFF\x03\x00", 6));
  EXPECT_EQ(samples[1].bytes, std::string("\x01\x00\x00\x00\x02\x00\x00\x00\x03\x00\x00\x00\x04\x00\x00\x00", 16));
  EXPECT_EQ(samples[2].bytes, std::string("\x0A\x00\x00\x00\x80\x40", 6));
  EXPECT_EQ(samples[3].bits, 5U);
  EXPECT_EQ(samples[4].bytes, std::string("\x00\x00\xC0\x3F\x00\x00\x00\x00", 8));
}

TEST_F(WorkerTest, TextThatIsNoUtf8_IsNotGood) {
  start(tag_line("Text", "STRING", "", "20"), {variable("Text", "STRING(20)", DataType::kString)},
        {rule_for("Text", false)});
  EXPECT_EQ(write(0, Input::bytes("a\xFF")).outcome, Outcome::kDone);
  const ReadResult result = read(0);
  EXPECT_FALSE(result.link_lost);
  const Sample& sample = result.samples.at(0);
  EXPECT_FALSE(sample.good);
  EXPECT_EQ(sample.bytes, "");
  EXPECT_EQ(sample.reason, Reason::kImpossible);
  EXPECT_EQ(sample.error, "the text in the controller is not UTF-8 and cannot be published");
}

TEST_F(WorkerTest, Pieces_AreOneCallEachAndKeepGroupsAndScopesApart) {
  std::string tags;
  std::vector<Variable> variables;
  for (int i = 0; i < 80; ++i) {
    const std::string name = "W" + std::to_string(i);
    tags += tag_line(name, "INT");
    variables.push_back(variable(name, "INT", DataType::kInt16, {}, i < 5 ? 0 : 1));
  }
  tags += tag_line("Step", "INT", "", "", "Main") + tag_line("Other", "INT", "", "", "Main") +
          tag_line("Table", "INT", "[0..999]") + tag_line("Long", "LINT");
  variables.insert(variables.begin() + 5, variable("Main/Step", "INT", DataType::kInt16));
  variables.push_back(variable("Table", "INT[0..999]", DataType::kInt16Array, {1000}, 1));
  variables.push_back(variable("Main/Other", "INT", DataType::kInt16, {}, 1));
  variables.push_back(variable("Long", "LINT", DataType::kInt64, {}, 1));
  start(tags, variables);
  std::vector<std::vector<size_t>> shapes;
  std::vector<uint32_t> seen;
  for (const Piece& piece : worker_->pieces()) {
    shapes.push_back({piece.group, piece.variables.front(), piece.variables.back(), piece.variables.size()});
    EXPECT_TRUE(std::is_sorted(piece.variables.begin(), piece.variables.end()));
    seen.insert(seen.end(), piece.variables.begin(), piece.variables.end());
  }
  std::sort(seen.begin(), seen.end());
  for (uint32_t i = 0; i < seen.size(); ++i) EXPECT_EQ(seen[i], i);
  EXPECT_THAT(seen, SizeIs(variables.size()));
  EXPECT_THAT(shapes, ElementsAre(ElementsAre(0, 0, 4, 5), ElementsAre(0, 5, 5, 1), ElementsAre(1, 6, 39, 34),
                                  ElementsAre(1, 40, 73, 34), ElementsAre(1, 74, 80, 7), ElementsAre(1, 81, 81, 1),
                                  ElementsAre(1, 82, 82, 1), ElementsAre(1, 83, 83, 1)));
  for (size_t piece = 0; piece < shapes.size(); ++piece) {
    const unsigned long before = sim_->count("requests");
    const uint64_t noted = worker_->figures().exchanges;
    EXPECT_THAT(read(piece).samples, Each(Field(&Sample::good, true)));
    // The two that follow each connect are the directory's.
    const unsigned long requests = sim_->count("requests") - before - (piece == 0 ? 2 : 0);
    EXPECT_EQ(requests, variables[shapes[piece][1]].name == "Table" ? 20U : 2U);
    EXPECT_EQ(worker_->figures().exchanges - noted, requests);
  }
}

TEST_F(WorkerTest, RefusedVariable_IsBadAndTheOthersAreGood) {
  start(tag_line("A", "INT") + tag_line("B", "INT") + tag_line("C", "INT"),
        {variable("A", "INT", DataType::kInt16), variable("B", "INT", DataType::kInt16),
         variable("C", "INT", DataType::kInt16)});
  // A controller that has no B.
  const std::string other = folder_.write("other.csv", tag_line("A", "INT") + tag_line("C", "INT"));
  sim_ = std::make_unique<plc_test::RunningSim>(PLC_TEST_SIMULATOR, std::vector<std::string>{other});
  make_worker();
  const ReadResult result = read(0);
  EXPECT_FALSE(result.link_lost);
  EXPECT_EQ(result.reason, Reason::kNone);
  EXPECT_TRUE(result.samples.at(0).good);
  EXPECT_FALSE(result.samples.at(1).good);
  EXPECT_EQ(result.samples.at(1).reason, Reason::kRefused);
  EXPECT_THAT(result.samples.at(1).error, HasSubstr("the controller refused the name"));
  EXPECT_TRUE(result.samples.at(2).good);
}

TEST_F(WorkerTest, VariableOfAMissingProgram_IsBadAndNotWritten) {
  start(tag_line("A", "INT") + tag_line("B", "INT", "", "", "Filing"),
        {variable("A", "INT", DataType::kInt16), variable("Filing/B", "INT", DataType::kInt16)});
  // Its program Main has the number that the tag file gives to Filing.
  const std::string other = folder_.write("other.csv", tag_line("A", "INT") + tag_line("B", "INT", "", "", "Main"));
  sim_ = std::make_unique<plc_test::RunningSim>(PLC_TEST_SIMULATOR, std::vector<std::string>{other});
  make_worker({rule_for("Filing/B", true)});
  const std::vector<Sample> samples = read_all();
  EXPECT_TRUE(samples.at(0).good);
  EXPECT_FALSE(samples.at(1).good);
  EXPECT_EQ(samples.at(1).reason, Reason::kFailed);
  EXPECT_THAT(samples.at(1).error, HasSubstr("the controller has no program \"Filing\""));
  EXPECT_EQ(samples.at(1).advice, "Correct column 12 of its line: plc-host check FILE --live names similar programs.");
  const WriteOutcome outcome = write(0, Input(5));
  EXPECT_EQ(outcome.outcome, plc_client::Outcome::kNotDone);
  EXPECT_THAT(outcome.error, HasSubstr("nothing was written"));
  for (const plc_test::DumpedElement& element : sim_->dump()) {
    if (element.name != "B") continue;
    EXPECT_EQ(element.raw, "0000");
  }
}

TEST_F(WorkerTest, VariableOfAProgramThatBeginsWithAnotherOnesName_IsBadAndNotWritten) {
  start(tag_line("B", "INT", "", "", "Main") + tag_line("B", "INT", "", "", "Main2"),
        {variable("Main/B", "INT", DataType::kInt16), variable("Main2/B", "INT", DataType::kInt16)});
  const std::string other = folder_.write("other.csv", tag_line("B", "INT", "", "", "Main"));
  sim_ = std::make_unique<plc_test::RunningSim>(PLC_TEST_SIMULATOR, std::vector<std::string>{other});
  make_worker({rule_for("Main2/B", true)});
  const std::vector<Sample> samples = read_all();
  EXPECT_TRUE(samples.at(0).good);
  EXPECT_FALSE(samples.at(1).good);
  EXPECT_THAT(samples.at(1).error, HasSubstr("the controller has no program \"Main2\""));
  EXPECT_EQ(write(0, Input(5)).outcome, plc_client::Outcome::kNotDone);
  EXPECT_TRUE(read_all().at(0).good);
  for (const plc_test::DumpedElement& element : sim_->dump()) EXPECT_EQ(element.raw, "0000") << element.name;
}

// Each name would be proof that the other one is cut.
TEST_F(WorkerTest, VariablesOfTwoShortBeginnings_AreBadAndNotWritten) {
  start(tag_line("B", "INT", "", "", "Main2") + tag_line("B", "INT", "", "", "Pump2"),
        {variable("Main2/B", "INT", DataType::kInt16), variable("Pump2/B", "INT", DataType::kInt16)});
  const std::string other =
      folder_.write("other.csv", tag_line("B", "INT", "", "", "Main") + tag_line("B", "INT", "", "", "Pump"));
  sim_ = std::make_unique<plc_test::RunningSim>(PLC_TEST_SIMULATOR, std::vector<std::string>{other});
  make_worker({rule_for("Main2/B", true)});
  for (const Sample& sample : read_all()) EXPECT_FALSE(sample.good);
  EXPECT_EQ(write(0, Input(5)).outcome, plc_client::Outcome::kNotDone);
  for (const plc_test::DumpedElement& element : sim_->dump()) EXPECT_EQ(element.raw, "0000") << element.name;
}

TEST_F(WorkerTest, ValueOfTheContractBuild_IsUnguarded) {
  start(tag_line("A", "INT"), {variable("A", "INT", DataType::kInt16)});
  EXPECT_FALSE(read_all().at(0).unguarded);
  make_worker({}, PLC_TEST_CONTRACT);
  const Sample sample = read_all().at(0);
  EXPECT_TRUE(sample.good);
  EXPECT_TRUE(sample.unguarded);
}

TEST_F(WorkerTest, WriteOfTheContractBuild_IsUnknown) {
  start(tag_line("A", "INT"), {variable("A", "INT", DataType::kInt16)});
  make_worker({rule_for("A", false), rule_for("A", true)}, PLC_TEST_CONTRACT);
  const WriteOutcome plain = write(0, Input(5));
  EXPECT_EQ(plain.outcome, plc_client::Outcome::kUnknown);
  EXPECT_EQ(plain.error, "the contract build sees no acknowledgment: read the variable");
  const WriteOutcome verified = write(1, Input(6));
  EXPECT_EQ(verified.outcome, plc_client::Outcome::kUnknown);
  EXPECT_EQ(verified.error, "it was read back, but the contract build does not check replies");
}

class LostTest : public WorkerTest {
 protected:
  void SetUp() override {
    start(tag_line("A", "INT") + tag_line("B", "LINT"),
          {variable("A", "INT", DataType::kInt16), variable("B", "LINT", DataType::kInt64)},
          {rule_for("A", false), rule_for("A", true), rule_for("B", false)});
  }
  void expect_lost(const ReadResult& result, Reason reason, const std::string& words) {
    EXPECT_TRUE(result.link_lost);
    EXPECT_EQ(result.reason, reason) << plc_client::reason_word(result.reason);
    EXPECT_THAT(result.error, HasSubstr(words));
    ASSERT_THAT(result.samples, SizeIs(worker_->pieces().at(result.piece).variables.size()));
    for (const Sample& sample : result.samples) {
      EXPECT_FALSE(sample.good);
      EXPECT_EQ(sample.bits, 0U);
      EXPECT_EQ(sample.reason, reason);
    }
  }
};

TEST_F(LostTest, ControllerThatIsGone_IsLostUntilItIsBack) {
  EXPECT_FALSE(read(0).link_lost);
  EXPECT_TRUE(worker_->figures().connected);
  sim_->tell("fault gone");
  expect_lost(read(0), Reason::kNoConnection, "refused: nothing listens on ");
  EXPECT_FALSE(worker_->figures().connected);
  sim_->tell("fault clear");
  EXPECT_FALSE(read(0).link_lost);
  EXPECT_EQ(worker_->figures().connects, 2U);
}

TEST_F(LostTest, PauseBetweenConnects_IsLostToo) {
  variables_ = {variable("A", "INT", DataType::kInt16)};
  plc_client::Options options;
  options.address = "127.0.0.1";
  options.port = sim_->port();
  options.tags = {folder_.path()};
  options.driver = PLC_TEST_GUARDED;
  options.first_pause = std::chrono::seconds(1000);
  sim_->tell("fault gone");
  worker_ = std::make_unique<ControllerWorker>(options, options.address, variables_, std::vector<CommandRule>{},
                                               [this] { bell_.ring(); });
  expect_lost(read(0), Reason::kNoConnection, "nothing listens on ");
  // However long the program's own pauses are, they end within seconds.
  const ReadResult paused = read(0);
  expect_lost(paused, Reason::kNotTried, "the next attempt is in ");
  const double left = std::strtod(paused.error.c_str() + paused.error.find("attempt is in ") + 14, nullptr);
  EXPECT_LE(left, 2.0);
}

TEST_F(LostTest, SilentController_IsLost) {
  read(0);
  sim_->tell("fault no-reply on=read");
  expect_lost(read(0), Reason::kNoAnswer, "no answer within 1 s");
  EXPECT_FALSE(read(0).link_lost);
}

TEST_F(LostTest, ForeignReply_IsDroppedAndCounted) {
  read(0);
  sim_->tell("fault foreign on=read");
  EXPECT_FALSE(read(0).link_lost);
  EXPECT_EQ(worker_->figures().drops, 1U);
}

TEST_F(LostTest, ConnectionThatEndsInEachRead_IsLost) {
  read(0);
  sim_->tell("fault close times=2 on=read");
  expect_lost(read(0), Reason::kLost, "the controller closed the connection");
  EXPECT_FALSE(read(0).link_lost);
}

TEST_F(LostTest, Writes_AreMadeAndReadBackWhenTheRuleSaysSo) {
  const WriteOutcome written = write(0, -5);
  EXPECT_EQ(written.outcome, Outcome::kDone);
  EXPECT_FALSE(written.verified);
  EXPECT_EQ(written.reason, Reason::kNone);
  EXPECT_EQ(written.error, "");
  EXPECT_GT(written.time, 0);
  EXPECT_EQ(read(0).samples.at(0).bits, 0xFFFBU);
  const WriteOutcome verified = write(1, 6);
  EXPECT_EQ(verified.outcome, Outcome::kDone);
  EXPECT_TRUE(verified.verified);
  EXPECT_EQ(read(0).samples.at(0).bits, 6U);
}

TEST_F(LostTest, ValueThatTheVariableCannotHold_IsNotWritten) {
  const unsigned long before = sim_->count("requests");
  const WriteOutcome outcome = write(0, 40000);
  EXPECT_EQ(outcome.outcome, Outcome::kNotDone);
  EXPECT_EQ(outcome.reason, Reason::kImpossible);
  EXPECT_EQ(outcome.error, "A is declared INT: 40000 is outside -32768 to 32767");
  EXPECT_EQ(sim_->count("requests"), before);
}

TEST_F(LostTest, RefusedWrite_IsNotDone) {
  read(0);
  sim_->tell("fault refuse on=resolve");
  const WriteOutcome outcome = write(1, 5);
  EXPECT_EQ(outcome.outcome, Outcome::kNotDone);
  EXPECT_EQ(outcome.reason, Reason::kRefused);
  EXPECT_THAT(outcome.error, HasSubstr("the controller refused the name, status 0013 (3). "));
}

TEST_F(LostTest, WriteWhoseAcknowledgementIsLost_IsUnknown) {
  read(0);
  sim_->tell("fault close on=write");
  const WriteOutcome outcome = write(0, 5);
  EXPECT_EQ(outcome.outcome, Outcome::kUnknown);
  EXPECT_EQ(outcome.reason, Reason::kLost);
  EXPECT_THAT(outcome.error, HasSubstr("; whether it was written is not known"));
}

TEST_F(LostTest, ValueThatIsReadBackDifferent_IsUnknown) {
  sim_->tell("set A 9");
  make_worker({rule_for("A", true)}, PLC_TEST_CONTRACT);
  EXPECT_TRUE(read(0).samples.at(0).good);
  sim_->tell("fault refuse on=write");  // which the contract build takes for done
  const WriteOutcome outcome = write(0, 5);
  EXPECT_EQ(outcome.outcome, Outcome::kUnknown);
  EXPECT_FALSE(outcome.verified);
  EXPECT_EQ(outcome.reason, Reason::kDifferent);
  EXPECT_EQ(outcome.error,
            "sent 5, but read back 9. Was the write refused? The contract build does not tell: try the guarded build.");
}

TEST_F(LostTest, StopDuringSilence_EndsWithTheReplyTimeOut) {
  read(0);
  sim_->tell("fault no-reply on=read");
  worker_->start_read(0);
  while (sim_->count("fault.no-reply") == 0) continue;  // until the thread waits for the reply
  worker_->stop();
  EXPECT_FALSE(worker_->figures().connected);
  worker_->stop();
}

TEST_F(LostTest, AddressThatNobodyKnows_IsAControllerThatIsLost) {
  const std::string host(64, 'a');  // longer than a part of a name can be: nobody is asked for it
  worker_.reset();
  make_worker({}, PLC_TEST_GUARDED, host);
  const ReadResult lost = read(0);
  expect_lost(lost, Reason::kNoConnection,
              "'" + host + "' is not an address, and the system knows no host of that name: ");
  // In the pause that follows nobody is asked; behind it everything is as before.
  EXPECT_EQ(read(0).error, lost.error);
  EXPECT_EQ(write(0, Input(int64_t{1})).outcome, Outcome::kNotDone);
}

// The name is known, and what is known of it does not fit yet: it is tried again until it does.
TEST_F(LostTest, ControllerThatIsFoundLater_IsReadAsPlanned) {
  const std::string tags = folder_.read("PLC7F000001_0.csv");
  std::filesystem::rename(folder_.file("PLC7F000001_0.csv"), folder_.file("PLCA000001_0.csv"));
  worker_.reset();
  make_worker({}, PLC_TEST_GUARDED, "localhost", "10.0.0.1");
  const ReadResult lost = read(0);
  EXPECT_TRUE(lost.link_lost);
  EXPECT_THAT(lost.error, HasSubstr("has no PLC7F000001_0.csv"));
  folder_.write("PLC7F000001_0.csv", tags);
  ReadResult found = read(0);
  while (found.link_lost) found = read(0);
  EXPECT_THAT(found.samples, Each(Field(&Sample::good, true)));
}

TEST_F(LostTest, UnknownVariable_IsToldBeforeAnythingRuns) {
  variables_.push_back(variable("Nix", "INT", DataType::kInt16));
  EXPECT_THROW(make_worker(), plc_client::UnknownVariable);
}

}  // namespace
}  // namespace plc_gateway_test
