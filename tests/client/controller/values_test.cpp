// Every type, shape, scope, kind of id and device: what is read is what the simulator's memory holds, what is written
// is what it holds afterwards.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <map>
#include <set>

#include "tests/client/controller/controller_fixture.h"

namespace plc_client_test {
namespace {

struct TypeUnderTest {
  const char* name;
  Kind kind;
  unsigned bits;
};

constexpr TypeUnderTest kTypes[] = {
    {"BOOL", Kind::kBool, 1},       {"INT", Kind::kSigned, 16},    {"DINT", Kind::kSigned, 32},
    {"LINT", Kind::kSigned, 64},    {"UINT", Kind::kUnsigned, 16}, {"UDINT", Kind::kUnsigned, 32},
    {"ULINT", Kind::kUnsigned, 64}, {"WORD", Kind::kWord, 16},     {"DWORD", Kind::kWord, 32},
    {"LWORD", Kind::kWord, 64},     {"REAL", Kind::kReal, 32},     {"LREAL", Kind::kReal, 64}};

struct ShapeUnderTest {
  const char* range;
  std::vector<size_t> extents;
  bool is_named_by_offsets = true;  // else no offset names its elements, which takes long to find out
};

const std::vector<ShapeUnderTest>& shapes() {
  static const std::vector<ShapeUnderTest> all = {{"", {}},
                                                  {"[0..4]", {5}},
                                                  {"[2..5]", {4}},
                                                  {"[0..1_0..2]", {2, 3}},
                                                  {"[1..3_1..4]", {3, 4}},
                                                  {"[2..3_5..7]", {2, 3}, false},
                                                  {"[0..1_0..2_0..3]", {2, 3, 4}},
                                                  {"[1..2_1..2_1..2]", {2, 2, 2}}};
  return all;
}

struct VariableUnderTest {
  std::string name;
  const TypeUnderTest* type;
  const ShapeUnderTest* shape;
};

// Names with a point and with an index are looked up in other ways, bits on each device too.
std::vector<VariableUnderTest> all_variables(std::string& tags) {
  std::vector<VariableUnderTest> all;
  const std::vector<std::string> programs = {"", "Main"};
  for (const TypeUnderTest& type : kTypes) {
    const std::vector<std::string> devices =
        type.bits == 1 ? std::vector<std::string>{"", "DM0", "EM0", "MR0", "LR0"} : std::vector<std::string>{"", "EM0"};
    for (const ShapeUnderTest& shape : shapes()) {
      for (const std::string& program : programs) {
        for (const std::string& device : devices) {
          for (const char* start : {"V", "S.V", "A[1].V"}) {
            const bool is_plain = program.empty() && device.empty() && *start == 'V';
            const bool is_short = std::string(type.name) == "BOOL" || std::string(type.name) == "INT";
            if (!shape.is_named_by_offsets && !(is_plain && is_short)) continue;
            if (type.bits != 1 && *start != 'V' && !(program.empty() && device.empty())) continue;
            const std::string name = start + std::to_string(all.size());
            tags += tag_line(name, type.name, shape.range, "", program, device);
            all.push_back({(program.empty() ? "" : program + "/") + name, &type, &shape});
          }
        }
      }
    }
  }
  return all;
}

class ValuesTest : public ControllerTest {
 protected:
  void SetUp() override {
    std::string tags;
    variables_ = all_variables(tags);
    start(tags);
  }

  // The variables' declared types that cannot be read, which must be those that no offset names.
  std::set<std::string> read_all(const Options& options, Quality quality) {
    Controller controller(options);
    controller.connect();
    const unsigned long before = requests();
    const Memory held = memory();
    std::set<std::string> impossible;
    for (const VariableUnderTest& variable : variables_) {
      const Reading reading = controller.read(variable.name);
      EXPECT_EQ(reading.name, variable.name);
      if (!reading.ok()) {
        EXPECT_EQ(reading.error.reason, Reason::kImpossible) << variable.name << ": " << reading.error.text;
        EXPECT_THAT(reading.error.text, testing::StartsWith("no offset makes the driver read " + variable.name));
        EXPECT_FALSE(reading.value.has_value());
        impossible.insert(std::string(variable.type->bits == 1 ? "BOOL" : "other") + variable.shape->range);
        continue;
      }
      EXPECT_EQ(reading.quality, quality);
      EXPECT_EQ(reading.value.kind(), variable.type->kind) << variable.name;
      EXPECT_EQ(reading.value.bits(), variable.type->bits) << variable.name;
      EXPECT_EQ(reading.value.shape(), variable.shape->extents) << variable.name;
      EXPECT_EQ(bits_of(reading.value), held.bits(variable.name, variable.type->bits)) << variable.name;
    }
    EXPECT_EQ(requests() - before, controller.state().exchanges);
    return impossible;
  }

  std::vector<VariableUnderTest> variables_;
};

// The value of elements from *next on, as a program would write it.
plc_client::Input input_of(const VariableUnderTest& variable, const std::vector<uint64_t>& bits, size_t depth,
                           size_t& next) {
  if (depth < variable.shape->extents.size()) {
    std::vector<plc_client::Input> list;
    for (size_t i = 0; i < variable.shape->extents[depth]; ++i) {
      list.push_back(input_of(variable, bits, depth + 1, next));
    }
    return list;
  }
  const uint64_t element = bits[next++];
  switch (variable.type->kind) {
    case Kind::kBool:
      return element != 0;
    case Kind::kSigned:
      return variable.type->bits == 16   ? static_cast<int64_t>(static_cast<int16_t>(element))
             : variable.type->bits == 32 ? static_cast<int64_t>(static_cast<int32_t>(element))
                                         : static_cast<int64_t>(element);
    case Kind::kReal:
      if (variable.type->bits == 32) {
        float number = 0;
        const auto word = static_cast<uint32_t>(element);
        std::memcpy(&number, &word, sizeof number);
        return number;
      } else {
        double number = 0;
        std::memcpy(&number, &element, sizeof number);
        return number;
      }
    default:
      return element;
  }
}

// Other bits than the memory holds, of numbers that every type has.
uint64_t changed(uint64_t bits, const TypeUnderTest& type) {
  if (type.kind != Kind::kReal) return ~bits & (type.bits == 64 ? ~uint64_t{0} : (uint64_t{1} << type.bits) - 1);
  return bits ^ 0x15U;  // the lowest digits of its fraction
}

const std::set<std::string> kUnnamedShapes = {"BOOL[2..3_5..7]", "other[2..3_5..7]"};

TEST_F(ValuesTest, EveryTypeShapeScopeAndDevice_IsReadAsTheMemoryHoldsIt) {
  EXPECT_EQ(read_all(options(), Quality::kGood), kUnnamedShapes);
  expect_no_refusal_of_the_guard();
}

TEST_F(ValuesTest, ContractBuild_ReadsTheSameWithoutAWordOfItsQuality) {
  Options contract = options();
  contract.driver = PLC_TEST_CONTRACT;
  EXPECT_EQ(read_all(contract, Quality::kUnguarded), kUnnamedShapes);
}

TEST_F(ValuesTest, AllInOnePlan_AreReadAsTheMemoryHoldsThem) {
  for (const char* driver : {PLC_TEST_GUARDED, PLC_TEST_CONTRACT}) {
    Options chosen = options();
    chosen.driver = driver;
    Controller controller(chosen);
    std::vector<std::string> names;
    for (const VariableUnderTest& variable : variables_) names.push_back(variable.name);
    const Memory held = memory();
    const std::vector<Reading> readings = controller.read(names);
    ASSERT_EQ(readings.size(), variables_.size());
    for (size_t i = 0; i < readings.size(); ++i) {
      EXPECT_EQ(readings[i].name, names[i]);
      EXPECT_EQ(readings[i].ok(), variables_[i].shape->is_named_by_offsets);
      if (!readings[i].ok()) continue;
      EXPECT_EQ(bits_of(readings[i].value), held.bits(names[i], variables_[i].type->bits)) << names[i] << " " << driver;
    }
  }
  expect_no_refusal_of_the_guard();
}

TEST_F(ValuesTest, EveryWrite_ChangesItsOwnVariableAndNoOther) {
  Controller controller(options());
  controller.connect();
  const unsigned long sent = requests();
  const Memory before = memory();
  std::set<std::string> impossible;
  std::map<std::string, std::vector<uint64_t>> expected;
  for (const VariableUnderTest& variable : variables_) {
    std::vector<uint64_t> bits = before.bits(variable.name, variable.type->bits);
    expected[variable.name] = bits;
    for (uint64_t& element : bits) element = changed(element, *variable.type);
    size_t next = 0;
    const plc_client::Input input = input_of(variable, bits, 0, next);
    const Verify verify = variable.shape->is_named_by_offsets ? Verify::kReadBack : Verify::kNone;
    try {
      const WriteResult result = controller.write(variable.name, input, verify);
      EXPECT_TRUE(result.ok()) << variable.name << ": " << result.error.text;
      EXPECT_EQ(result.verified, verify == Verify::kReadBack) << variable.name;
      expected[variable.name] = bits;
    } catch (const plc_client::Error& error) {
      EXPECT_THAT(error.what(), testing::StartsWith(variable.name + ": no offset makes the driver write "));
      impossible.insert(variable.type->name + std::string(variable.shape->range));
    }
  }
  EXPECT_EQ(impossible, (std::set<std::string>{"BOOL[2..3_5..7]"}));
  EXPECT_EQ(controller.state().exchanges, requests() - sent);
  const Memory after = memory();
  for (const VariableUnderTest& variable : variables_) {
    EXPECT_EQ(after.bits(variable.name, variable.type->bits), expected[variable.name]) << variable.name;
  }
  expect_no_refusal_of_the_guard();
}

class KindsTest : public ControllerTest {};

TEST_F(KindsTest, EveryLengthOfAText_ArrivesWhole) {
  start(tag_line("T1", "STRING", "", "1") + tag_line("T2", "STRING", "", "2") + tag_line("T7", "STRING", "", "7") +
        tag_line("T40", "STRING", "", "40", "Main"));
  Controller controller(options());
  const std::map<std::string, size_t> texts = {{"T1", 1}, {"T2", 2}, {"T7", 7}, {"Main/T40", 40}};
  for (const auto& [name, declared] : texts) {
    for (size_t length = 0; length <= declared; ++length) {
      for (const char sign : {'a', 'z'}) {
        const std::string text(length, sign);
        const WriteResult result = controller.write(name, text, Verify::kReadBack);
        EXPECT_TRUE(result.verified) << name << " " << length << " " << result.error.text;
        EXPECT_EQ(memory().text(name, declared), text);
        EXPECT_EQ(controller.read(name).value.as<std::string>(), text);
      }
    }
  }
  expect_no_refusal_of_the_guard();
}

TEST_F(KindsTest, LongText_ArrivesWholeAroundThePiecesOfItsTransfers) {
  start(tag_line("Long", "STRING", "", "1020"));
  Controller controller(options());
  for (const size_t length : {0U, 239U, 240U, 241U, 480U, 509U, 510U, 511U, 512U, 720U, 1019U, 1020U}) {
    std::string text;
    for (size_t i = 0; i < length; ++i) text += static_cast<char>('A' + i % 26);
    const WriteResult result = controller.write("Long", text, Verify::kReadBack);
    EXPECT_TRUE(result.verified) << length << " " << result.error.text;
    EXPECT_EQ(memory().text("Long", 1020), text);
  }
}

TEST_F(KindsTest, TextThatNoReadReachesTheEndOf_HasNoValue) {
  start(tag_line("Huge", "STRING", "", "2000"));
  Controller controller(options());
  const Reading reading = controller.read("Huge");
  EXPECT_EQ(memory().text("Huge", 2000).size(), 2000U);
  EXPECT_EQ(reading.error.reason, Reason::kIncomplete);
  EXPECT_EQ(reading.error.text, "reads reach the first 1530 bytes of the text, and it goes on behind them");
  EXPECT_FALSE(reading.value.has_value());
  controller.write("Huge", std::string(1529, 'x'));
  EXPECT_EQ(controller.read("Huge").value.as<std::string>(), std::string(1529, 'x'));
  EXPECT_EQ(controller.write("Huge", std::string(1531, 'x'), Verify::kReadBack).outcome, Outcome::kUnknown);
  EXPECT_EQ(memory().text("Huge", 2000), std::string(1531, 'x'));
}

TEST_F(KindsTest, TextsOfOneScope_AreReadTogether) {
  std::string tags;
  std::vector<std::string> names;
  for (int i = 1; i <= 12; ++i) {
    names.push_back("T" + std::to_string(i));
    tags += tag_line(names.back(), "STRING", "", std::to_string(i % 5 + 1));
  }
  start(tags);
  Controller controller(options());
  Plan plan = controller.plan(names);
  EXPECT_EQ(plan.exchanges(), 2U);
  const Memory held = memory();
  controller.read(plan);
  for (size_t i = 0; i < names.size(); ++i) {
    const size_t declared = (i + 1) % 5 + 1;
    EXPECT_EQ(plan.readings()[i].type, "STRING(" + std::to_string(declared) + ")");
    EXPECT_EQ(plan.readings()[i].value.as<std::string>(), held.text(names[i], declared));
    EXPECT_EQ(plan.readings()[i].value.as<std::string>().size(), declared);
  }
  controller.write("T4", "ab");
  controller.write("T5", "");
  controller.read(plan);
  EXPECT_EQ(plan.readings()[3].value.as<std::string>(), "ab");
  EXPECT_EQ(plan.readings()[4].value.as<std::string>(), "");
  EXPECT_TRUE(plan.readings()[4].ok());
}

// What follows the first zero byte is not known: what was stored is no value.
TEST_F(KindsTest, Dates_HaveNoValue) {
  start(tag_line("A", "DATE") + tag_line("B", "TIME_OF_DAY") + tag_line("C", "DATE_AND_TIME") + tag_line("D", "STIME"));
  Controller controller(options());
  for (const char* name : {"A", "B", "C", "D"}) {
    for (const Reading& reading : {controller.read(name), controller.read({name, "A"}).front()}) {
      EXPECT_FALSE(reading.ok());
      EXPECT_EQ(reading.error.reason, Reason::kIncomplete);
      EXPECT_THAT(reading.error.text,
                  testing::MatchesRegex("the driver stores a value of this type up to its first zero byte, and what "
                                        "follows is not known; stored: [0-9A-F][0-9A-F]( [0-9A-F][0-9A-F])?"));
      EXPECT_FALSE(reading.value.has_value());
    }
    EXPECT_EQ(thrown<plc_client::TypeMismatch>([&] { controller.write(name, "x"); }),
              std::string(name) + " is declared " + controller.read(name).type + ": the driver writes no such type");
  }
}

TEST_F(KindsTest, DateOfWhichNothingWasStored_IsNoValue) {
  start(tag_line("A", "DATE") + tag_line("W", "INT"), {});
  Controller controller(options());
  for (const Reading& reading : {controller.read("A"), controller.read({"W", "A"}).back()}) {
    EXPECT_FALSE(reading.ok());
    EXPECT_EQ(reading.error.reason, Reason::kIncomplete);
    EXPECT_EQ(reading.error.text,
              "the driver stores a value of this type up to its first zero byte, and what follows is not known; "
              "stored: nothing");
    EXPECT_FALSE(reading.value.has_value());
  }
}

TEST_F(KindsTest, EightBits_AreImpossibleAndNothingIsSent) {
  start(tag_line("S", "SINT") + tag_line("U", "USINT", "[0..3]") + tag_line("B", "BYTE"));
  Controller controller(options());
  for (const char* name : {"S", "U", "B", "U[1..2]"}) {
    const Reading reading = controller.read(name);
    EXPECT_EQ(reading.error.reason, Reason::kImpossible);
    EXPECT_EQ(reading.error.text, "the driver transfers no 8-bit values");
    EXPECT_FALSE(reading.value.has_value());
  }
  EXPECT_EQ(thrown<plc_client::Error>([&] { controller.write("S", 1); }),
            "S: the driver writes no 8-bit values: it would send a command that sets or resets one bit");
  EXPECT_EQ(requests(), 0U);
}

TEST_F(KindsTest, PartsOfArrays_AreTheirElements) {
  start(tag_line("T", "INT", "[2..9]") + tag_line("G", "DINT", "[0..2_0..4]") + tag_line("B", "BOOL", "[0..15]") +
        tag_line("L", "LINT", "[0..5]") + tag_line("C", "REAL", "[0..1_0..2_0..3]"));
  Controller controller(options());
  const Memory held = memory();
  const auto part = [&](const char* name, unsigned bits, const std::vector<size_t>& places) {
    std::vector<uint64_t> chosen;
    for (const size_t place : places) chosen.push_back(held.bits(name, bits).at(place));
    return chosen;
  };
  const std::vector<Reading> readings =
      controller.read({"T[2..5]", "T[9]", "G[1,2..3]", "G[0..2,4]", "B[3..6]", "L[1..2]", "C[1,0..1,2]", "C[0,0,0]"});
  EXPECT_EQ(bits_of(readings[0].value), part("T", 16, {0, 1, 2, 3}));
  EXPECT_EQ(readings[0].value.shape(), (std::vector<size_t>{4}));
  EXPECT_EQ(readings[0].name, "T[2..5]");
  EXPECT_EQ(readings[0].type, "INT[2..9]");
  EXPECT_EQ(bits_of(readings[1].value), part("T", 16, {7}));
  EXPECT_FALSE(readings[1].value.is_array());
  EXPECT_EQ(bits_of(readings[2].value), part("G", 32, {7, 8}));
  EXPECT_EQ(bits_of(readings[3].value), part("G", 32, {4, 9, 14}));
  EXPECT_EQ(bits_of(readings[4].value), part("B", 1, {3, 4, 5, 6}));
  EXPECT_EQ(bits_of(readings[5].value), part("L", 64, {1, 2}));
  EXPECT_EQ(bits_of(readings[6].value), part("C", 32, {14, 18}));
  EXPECT_EQ(bits_of(readings[7].value), part("C", 32, {0}));
  EXPECT_TRUE(controller.write("T[3..4]", std::vector<int>{-1, 7}).ok());
  EXPECT_EQ(memory().bits("T", 16),
            (std::vector<uint64_t>{held.bits("T", 16)[0], 0xFFFF, 7, held.bits("T", 16)[3], held.bits("T", 16)[4],
                                   held.bits("T", 16)[5], held.bits("T", 16)[6], held.bits("T", 16)[7]}));
}

TEST_F(KindsTest, IndexedIds_AreReadAndWrittenAsOthers) {
  std::string tags = tag_line("Plain", "INT");
  const char* types[] = {"INT", "DINT", "REAL", "BOOL", "LINT", "INT"};
  for (size_t i = 0; i < std::size(types); ++i) {
    const std::string number = std::to_string(i);
    tags += "I[" + number + "].V," + types[i] + ",,,,,," + std::to_string(262144 + i) + ",1,0,0,\n";
  }
  start(tags);
  Controller controller(options());
  const Memory held = memory();
  const std::vector<Reading> readings = controller.read({"I[0].V", "I[1].V", "I[2].V", "I[3].V", "I[4].V", "Plain"});
  const unsigned widths[] = {16, 32, 32, 1, 64, 16};
  for (size_t i = 0; i < readings.size(); ++i) {
    ASSERT_TRUE(readings[i].ok()) << readings[i].error.text;
    EXPECT_EQ(bits_of(readings[i].value), held.bits(readings[i].name, widths[i]));
  }
  EXPECT_EQ(controller.tag("I[1].V").number, 262145U);
  EXPECT_TRUE(controller.write("I[4].V", -5, Verify::kReadBack).verified);
  EXPECT_EQ(memory().bits("I[4].V", 64).at(0), static_cast<uint64_t>(-5));
  const Reading last = controller.read("I[5].V");
  EXPECT_EQ(last.error.reason, Reason::kImpossible);
  EXPECT_THAT(last.error.text, testing::HasSubstr("the largest indexed id of a file cannot be asked for"));
}

TEST_F(KindsTest, Values_ComeAsWhatTheyAreAndAsNothingElse) {
  start(tag_line("I", "INT") + tag_line("W", "WORD") + tag_line("R", "REAL") + tag_line("T", "STRING", "", "9") +
            tag_line("B", "BOOL") + tag_line("L", "ULINT"),
        {});
  sim_->tell("set I -5");
  sim_->tell("set W 0xff");
  sim_->tell("set R 1.5");
  sim_->tell("set T pump");
  sim_->tell("set B true");
  sim_->tell("set L 18446744073709551615");
  Controller controller(options());
  const std::vector<Reading> read = controller.read({"I", "W", "R", "T", "B", "L"});
  std::string shown;
  for (const Reading& reading : read) shown += reading.value.to_string() + " ";
  EXPECT_EQ(shown, "-5 0x00FF 1.5 \"pump\" true 18446744073709551615 ");
  EXPECT_EQ(read[0].value.as<int16_t>(), -5);
  EXPECT_DOUBLE_EQ(read[0].value.as<double>(), -5.0);
  EXPECT_EQ(read[1].value.as<uint8_t>(), 255);
  EXPECT_EQ(thrown<plc_client::OutOfRange>([&] { read[0].value.as<uint32_t>(); }),
            "the value -5 does not fit uint32_t");
  EXPECT_EQ(thrown<plc_client::TypeMismatch>([&] { read[3].value.as<int>(); }),
            "the value is a text and cannot be taken as an integer");
  EXPECT_EQ(thrown<plc_client::TypeMismatch>([&] { read[4].value.as<int>(); }),
            "the value is a BOOL and cannot be taken as an integer");
  EXPECT_EQ(thrown<plc_client::OutOfRange>([&] { read[5].value.as<int64_t>(); }),
            "the value 18446744073709551615 does not fit int64_t");
  EXPECT_EQ(thrown<plc_client::OutOfRange>([&] { read[5].value.as<double>(); }),
            "the value 18446744073709551615 does not fit double exactly");
  sim_->tell("set L 9007199254740993");
  EXPECT_EQ(thrown<plc_client::OutOfRange>([&] { controller.read("L").value.as<double>(); }),
            "the value 9007199254740993 does not fit double exactly");
  sim_->tell("set L 9223372036854775808");
  EXPECT_DOUBLE_EQ(controller.read("L").value.as<double>(), 9223372036854775808.0);
  EXPECT_EQ(thrown<plc_client::Error>([&] { read[0].value.raw(1); }),
            "the value has 1 elements and none with the number 1");
  EXPECT_EQ(thrown<plc_client::Error>([] { Value().as<int>(); }),
            "there is no value: look at ok() and error before it is used");
}

}  // namespace
}  // namespace plc_client_test
