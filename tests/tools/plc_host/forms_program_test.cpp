// Tests of plc-host as a program, about the forms of its results, and of what is shown whole or not at all.
#include <array>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "tests/tools/plc_host/program_fixture.h"

namespace {

using namespace plc_host_test;

class FormsTest : public ProgramTest {
 protected:
  // Variables with values that no other form of a number has.
  Outcome read_set(const std::vector<std::string>& words, const std::vector<std::string>& sets) {
    auto simulator = start_simulator();
    std::vector<std::string> write = {"write", "--address", "127.0.0.1",        "--port",
                                      port_,   "--tags",    path("machine.csv")};
    write.insert(write.end(), sets.begin(), sets.end());
    EXPECT_EQ(run(write).code, 0);
    std::vector<std::string> read = {"read", "--address", "127.0.0.1", "--port", port_, "--tags", path("machine.csv")};
    read.insert(read.end(), words.begin(), words.end());
    return run(read);
  }

  // On the simulator that runs.
  Outcome on_controller(std::vector<std::string> words) {
    words.insert(words.end(), {"--address", "127.0.0.1:" + port_, "--tags", path("machine.csv")});
    return run(words);
  }
};

TEST_F(FormsTest, Csv_HasARowForEachElementAndDefusesTexts) {
  const Outcome outcome = read_set({"--format", "csv", "Speed", "Table[0..1]", "Text", "Temp", "Nope", "Mask"},
                                   {"Speed=-5", "Table[0..1]=[1, -2]", "Text==1+1, \"x\"", "Temp=-inf", "Mask=255"});
  EXPECT_EQ(outcome.code, 1);
  EXPECT_EQ(without_times(outcome.out),
            "name,type,state,time,value,reason\n"
            "Speed,INT,good,T,-5,\n"
            "Table[0],INT,good,T,1,\n"
            "Table[1],INT,good,T,-2,\n"
            "Text,STRING(20),good,T,\"'=1+1, \"\"x\"\"\",\n"
            "Temp,REAL,good,T,'-inf,\n"
            "Nope,,impossible,T,," +
                path("machine.csv") +
                " has no variable of this name\n"
                "Mask,WORD,good,T,0x00FF,\n");
}

TEST_F(FormsTest, CsvOfANumberedRead_NamesPlaces) {
  const Outcome outcome = run_on_simulator({"read", "--id", "8", "--offset", "2", "--count", "2", "--csv"});
  EXPECT_EQ(without_times(outcome.out),
            "name,type,state,time,value,reason\n"
            "Table #8 element 2,INT,good,T,0,\n"
            "Table #8 element 3,INT,good,T,0,\n");
}

TEST_F(FormsTest, Json_HasNullAndAReasonForWhatItCannotSay) {
  const Outcome outcome =
      read_set({"--json", "Temp", "Cube[0,0,0..3]", "Text", "Exact"},
               {"Temp=nan", "Cube[0,0,0..3]=[1.5, inf, nan, nan]", R"(Text="a\xFF")", "Exact=-inf"});
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_EQ(without_times(outcome.out),
            R"({"name":"Temp","id":4,"type":"REAL","state":"good","time":"T","value":null,"reason":"not a number"})"
            "\n"
            R"({"name":"Cube[0,0,0..3]","id":10,"type":"REAL[0..1,0..2,0..3]","state":"good","time":"T",)"
            R"("value":[1.5,null,null,null],"reason":"infinity: [0,0,1]; not a number: [0,0,2], [0,0,3]"})"
            "\n"
            R"x({"name":"Text","id":7,"type":"STRING(20)","state":"good","time":"T","value":null,)x"
            R"("reason":"the text is not UTF-8","bytes":"61 FF"})"
            "\n"
            R"({"name":"Exact","id":5,"type":"LREAL","state":"good","time":"T","value":null,"reason":"minus infinity"})"
            "\n");
}

TEST_F(FormsTest, WideIntegers_AreTextsInJsonWhereAskedFor) {
  const std::vector<std::string> sets = {"Big=-9223372036854775808", "Longs[0]=9007199254740993"};
  EXPECT_THAT(read_set({"--json", "Big"}, sets).out, EndsWith("\"value\":-9223372036854775808}\n"));
  EXPECT_THAT(read_set({"--json", "--int64-text", "Big"}, sets).out, EndsWith("\"value\":\"-9223372036854775808\"}\n"));
  EXPECT_THAT(read_set({"--format", "json", "--int64-text", "Longs[0..1]"}, sets).out,
              EndsWith("\"value\":[\"9007199254740993\",\"0\"]}\n"));
  EXPECT_THAT(run_on_simulator({"watch", "Big", "--json", "--int64-text", "--rounds", "1"}).out,
              HasSubstr("\"value\":\"0\"}\n"));
}

TEST_F(FormsTest, Raw_IsTheValueAlone) {
  const Outcome outcome = read_set({"--raw", "Speed", "Text", "Table[0..1]", "Mask", "Ready"},
                                   {"Speed=-5", R"(Text="pump \"3\"\n")", "Ready=on"});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(outcome.out, "-5\npump \"3\"\\n\n[0, 0]\n0x0000\ntrue\n");
  EXPECT_EQ(outcome.err, "");
}

// A line feed and the two signs that stand for one, a byte and the four signs that stand for it.
const std::vector<std::string> kAlikeTexts = {R"(Text="a\nb")", R"(Text="a\\nb")", R"(Text="\xFF")", R"(Text="\\xFF")"};
const std::vector<std::string> kAlikeShown = {R"(a\nb)", R"(a\\nb)", R"(\xFF)", R"(\\xFF)"};

TEST_F(FormsTest, TextsThatWouldLookAlike_DifferInEveryFormWithoutQuotes) {
  for (size_t i = 0; i < kAlikeTexts.size(); ++i) {
    const std::string& shown = kAlikeShown[i];
    EXPECT_EQ(read_set({"--raw", "Text"}, {kAlikeTexts[i]}).out, shown + "\n");
    EXPECT_THAT(read_set({"--csv", "Text"}, {kAlikeTexts[i]}).out, EndsWith("Z," + shown + ",\n"));
    const auto simulator = start_simulator();
    EXPECT_EQ(on_controller({"write", kAlikeTexts[i]}).code, 0);
    EXPECT_EQ(on_controller({"watch", "Text", "--raw", "--rounds", "1"}).out, shown + "\n");
    EXPECT_THAT(on_controller({"watch", "Text", "--csv", "--rounds", "1"}).out, EndsWith(",good,," + shown + "\n"));
    const std::string log = "watch" + std::to_string(i) + ".csv";
    EXPECT_EQ(on_controller({"watch", "Text", "--log", path(log), "--rounds", "1"}).code, 0);
    EXPECT_THAT(file_text(path(log)), HasSubstr(",Text," + shown + ",good,\n"));
  }
}

// The text of --raw as write takes it: between quotes, with a backslash before each quote in it.
std::string as_written(const std::string& raw) {
  std::string text;
  for (const char sign : raw) text += sign == '"' ? "\\\"" : std::string(1, sign);
  return '"' + text + '"';
}

TEST_F(FormsTest, RawText_CanBeWrittenBackWithTheSameBytes) {
  std::string typed = "\"";
  for (int byte = 1; byte < 256; ++byte) {
    std::array<char, 8> escape{};
    std::snprintf(escape.data(), escape.size(), "\\x%02X", static_cast<unsigned>(byte));
    typed += escape.data();
  }
  for (const std::string& text : {typed + '"', std::string(R"("\"a\\\"b\\")"), std::string(R"(" a\xE2\x80\xAE ")"),
                                  std::string(R"("\\n\n\\xFF\xFF")"), std::string(R"("")")}) {
    const auto simulator = start_simulator();
    EXPECT_EQ(on_controller({"write", "Long=" + text}).code, 0);
    const std::string json = without_times(on_controller({"read", "--json", "Long"}).out);
    const Outcome raw = on_controller({"read", "--raw", "Long"});
    EXPECT_EQ(raw.code, 0);
    EXPECT_EQ(count_of(raw.out, "\n"), 1U);
    EXPECT_EQ(on_controller({"write", "Long=other"}).code, 0);
    const Outcome back = on_controller({"write", "Long=" + as_written(raw.out.substr(0, raw.out.size() - 1))});
    EXPECT_EQ(back.code, 0) << back.err;
    EXPECT_EQ(without_times(on_controller({"read", "--json", "Long"}).out), json);
  }
}

TEST_F(FormsTest, RawWithoutOneOfTheValues_ShowsNone) {
  const Outcome outcome = run_on_simulator({"read", "--raw", "Speed", "Nope", "Total"});
  EXPECT_EQ(outcome.code, 1);
  EXPECT_EQ(outcome.out, "");
  EXPECT_THAT(outcome.err, HasSubstr("plc-host: Nope: " + path("machine.csv") + " has no variable of this name\n"));
  EXPECT_THAT(outcome.err, EndsWith("plc-host: no value is shown: 1 of 3 variables has none\n"));
  const Outcome batch = run_on_simulator({"batch", "--raw", "Speed", "Nope", "Total"});
  EXPECT_EQ(batch.code, 1);
  EXPECT_EQ(batch.out, "");
}

TEST_F(FormsTest, RawOfASilentController_IsEmptyAndEndsWithItsCode) {
  const Outcome outcome =
      run({"read", "--raw", "Speed", "--address", "127.0.0.1", "--port", port_, "--tags", path("machine.csv")});
  EXPECT_EQ(outcome.code, 7);
  EXPECT_EQ(outcome.out, "");
}

TEST_F(FormsTest, RawWatch_TakesOneVariable) {
  EXPECT_EQ(run_on_simulator({"watch", "--raw", "Speed", "--rounds", "2", "--interval", "1"}).out, "0\n");
  const Outcome two = run_on_simulator({"watch", "--raw", "Speed", "Total", "--rounds", "1"});
  EXPECT_EQ(two.code, 2);
  EXPECT_EQ(two.err, "plc-host: --raw watches one variable: with more nobody knows whose value a line has\n");
}

TEST_F(FormsTest, Strict_ShowsEveryValueOrNone) {
  EXPECT_EQ(count_of(run_on_simulator({"read", "--strict", "Speed", "Total", "--json"}).out, "\n"), 2U);
  for (const char* form : {"text", "json", "csv"}) {
    const Outcome outcome =
        run_on_simulator({"read", "--strict", "Speed", "Total", "--format", form}, {"--fault=refuse on=read after=1"});
    EXPECT_EQ(outcome.code, 1) << form;
    EXPECT_EQ(outcome.out, "") << form;
    EXPECT_THAT(outcome.err, HasSubstr("plc-host: Total: "));
    EXPECT_THAT(outcome.err, EndsWith("plc-host: no value is shown: 1 of 2 variables has none that is good\n"));
  }
}

TEST_F(FormsTest, StrictWithTheContractBuild_TakesNoValue) {
  library_ = PLC_HOST_LIBRARY;
  const Outcome outcome = run_on_simulator({"read", "--strict", "Speed", "--quiet"});
  EXPECT_EQ(outcome.code, 1);
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.err,
            "plc-host: --strict: the contract build takes any reply for the right one. Try: --driver guarded\n"
            "plc-host: no value is shown: 1 of 1 variable has none that is good\n");
}

TEST_F(FormsTest, DryRun_ShowsValuesAsTheyWouldGoAndNeedsNoController) {
  const Outcome outcome = run({"write", "--dry-run", "--tags", path("machine.csv"), "--csv", "Speed=0xFFFB",
                               "Table[0..1]=[1, 0b10]", "Text=x"});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(without_times(outcome.out),
            "name,type,state,time,value,reason\n"
            "Speed,INT,checked,T,-5,\n"
            "Table[0],INT,checked,T,1,\n"
            "Table[1],INT,checked,T,2,\n"
            "Text,STRING(20),checked,T,x,\n");
  EXPECT_EQ(outcome.err, "plc-host: 3 variables checked, nothing was sent\n");
  EXPECT_EQ(run({"write", "--dry-run", "Speed=1"}).err,
            "plc-host: which variables are there? Give --tags FILE, --address HOST or --sim TAGFILE\n");
  const Outcome refused = run({"write", "--dry-run", "--tags", path("machine.csv"), "Speed=70000", "Total=1"});
  EXPECT_EQ(refused.code, 1);
  EXPECT_EQ(refused.err,
            "plc-host: Speed: '70000' is no INT value: outside -32768 to 32767\n"
            "plc-host: 1 variable not written: the command has one that cannot be written\n"
            "plc-host: nothing was written\n");
  EXPECT_EQ(without_times(run({"write", "--dry-run", "--csv", "--tags", path("machine.csv"), "Total=1", "Nope=2"}).out),
            "name,type,state,time,value,reason\n"
            "Total,DINT,not-written,T,,not written: the command has one that cannot be written\n"
            "Nope,,impossible,T,," +
                path("machine.csv") + " has no variable of this name\n");
}

TEST_F(FormsTest, NumberThatARealRounds_IsTold) {
  const auto told = [this](const std::string& assignment) {
    return run_on_simulator({"write", "--verify", assignment}).err;
  };
  EXPECT_EQ(told("Temp=16777217"), "plc-host: Temp: a REAL holds about 7 digits: 16777217 becomes 16777216\n");
  EXPECT_EQ(told("Temp=3.14159265358979"),
            "plc-host: Temp: a REAL holds about 7 digits: 3.14159265358979 becomes 3.1415927\n");
  EXPECT_EQ(told("Temp=0.1"), "");
  EXPECT_EQ(told("Temp=nan"), "");
  EXPECT_EQ(told("Temp=-0.10E1"), "");
  EXPECT_EQ(told("Temp=12345678848"), "");
  EXPECT_EQ(told("Exact=16777217"), "");
  EXPECT_EQ(told("Exact=1e22"), "");
  EXPECT_EQ(told("Exact=0.1"), "");
  EXPECT_EQ(told("Exact=9007199254740993"),
            "plc-host: Exact: an LREAL holds about 16 digits: 9007199254740993 becomes 9007199254740992\n");
  EXPECT_EQ(told("Exact=0.12345678901234567890"),
            "plc-host: Exact: an LREAL holds about 16 digits: 0.12345678901234567890 becomes 0.12345678901234568\n");
  EXPECT_EQ(told("Speed=3"), "");
}

TEST_F(FormsTest, ValueThatIsNone_IsToldWithHowOneIsWritten) {
  const std::pair<const char*, const char*> values[] = {
      {"Speed=", "Speed: no value stands behind the ="},
      {"Speed=fast", "Speed: 'fast' is no INT value: write 120, -5, 0xFF or 0b101"},
      {"Mask=fast", "Mask: 'fast' is no WORD value: write 120, 0xFF or 0b101"},
      {"Temp=1,5", "Temp: '1,5' is no REAL value: write 2.5 or 1.5e3, with a point"},
      {"Table=[1 2 3]", "Table: '[1 2 3]' has 1 value where 10 belong: commas stand between them"},
      {"Table=[1]", "Table: '[1]' has 1 value where 10 belong"}};
  for (const auto& [assignment, said] : values) {
    EXPECT_EQ(run({"write", "--dry-run", "--tags", path("machine.csv"), assignment}).err,
              "plc-host: " + std::string(said) + "\nplc-host: nothing was written\n");
  }
  EXPECT_EQ(run({"write", "--dry-run", "--tags", path("machine.csv"), "Text="}).code, 0);
}

TEST_F(FormsTest, NumbersThatNameNoElement_AreReadAndRemarkedOn) {
  const Outcome single = run_on_simulator({"read", "--id", "2", "--offset", "3", "--raw"});
  EXPECT_EQ(single.code, 0);
  EXPECT_EQ(single.out, "0\n");
  EXPECT_EQ(single.err,
            "plc-host: Total #2: a single DINT has no elements: offset 3, count 1 name the variable itself\n");
  EXPECT_THAT(
      run_on_simulator({"read", "--id", "2", "--offset", "3", "--quiet"}).err,
      HasSubstr("plc-host: Total #2: a single DINT has no elements: offset 3, count 1 name the variable itself\n"));
  EXPECT_EQ(without_times(run_on_simulator({"read", "--id", "2", "--count", "2", "--csv"}).out),
            "name,type,state,time,value,reason\n"
            "Total #2 element 0,DINT,good,T,0,\n"
            "Total #2 element 1,DINT,good,T,0,\"a single DINT has no elements: offset 1, count 1 name the variable "
            "itself\"\n");
  EXPECT_EQ(without_times(run_on_simulator({"read", "--id", "8", "--offset", "9", "--count", "2", "--csv"}).out),
            "name,type,state,time,value,reason\n"
            "Table #8 element 9,INT,good,T,0,\n"
            "Table #8 element 10,INT,good,T,0,offset 10 is outside 0..9\n");
  EXPECT_THAT(without_times(run_on_simulator({"read", "--id", "11", "--offset", "6", "--count", "4", "--csv"}).out),
              EndsWith("Longs #11 element 3,LINT,good,T,0,\nLongs #11 element 4,LINT,good,T,0,\n"));
  EXPECT_THAT(
      read_set({"--json", "--id", "10", "--offset", "4", "--count", "4"}, {"Cube[0,1,2]=nan", "Cube[0,1,3]=inf"}).out,
      HasSubstr(R"("reason":"not a number: element 6; infinity: element 7"})"));
  EXPECT_THAT(run_on_simulator({"read", "--id", "8", "--offset", "9", "--count", "2", "--json"}).out,
              HasSubstr(R"("value":[0,0],"reason":"offset 10 is outside 0..9"})"));
  EXPECT_THAT(run_on_simulator({"read", "--id", "8", "--offset", "10", "--count", "3"}).err,
              HasSubstr("plc-host: Table #8: offsets 10 to 12 are outside 0..9\n"));
}

// Begins what is said of offsets and counts that cut 64-bit elements.
constexpr char kOfHalves[] = "the driver halves offset and count of 64-bit types: ";

TEST_F(FormsTest, NumbersThatAskForNothing_GiveNoValueInAnyForm) {
  const std::string reason = std::string(kOfHalves) + "offset 0, count 1 asked for no element";
  const std::string advice = "an even offset and an even count, 2 for each element.";
  for (const char* id : {"3", "11"}) {
    const Outcome text = run_on_simulator({"read", "--id", id}, {"--sentinel"});
    EXPECT_EQ(text.code, 1);
    EXPECT_THAT(text.out, HasSubstr("  incomplete "));
    EXPECT_THAT(text.out, EndsWith("  -\n"));
    EXPECT_THAT(text.err, EndsWith(" #" + std::string(id) + ": " + reason + ". Try: " + advice + "\n"));
  }
  EXPECT_EQ(without_times(run_on_simulator({"read", "--id", "11", "--csv"}).out),
            "name,type,state,time,value,reason\nLongs #11,LINT[0..4],incomplete,T,,\"" + reason + "\"\n");
  EXPECT_THAT(run_on_simulator({"read", "--id", "11", "--json"}).out,
              HasSubstr(R"("value":null,"reason":")" + reason + R"(","try":")" + advice + "\""));
  const Outcome raw = run_on_simulator({"read", "--id", "11", "--raw"});
  EXPECT_EQ(raw.code, 1);
  EXPECT_EQ(raw.out, "");
  const Outcome units = run_on_simulator({"read", "--id", "21", "--count", "256"}, {"--sentinel"});
  EXPECT_EQ(units.code, 1);
  EXPECT_THAT(units.out, EndsWith("  -\n"));
  EXPECT_EQ(units.err,
            "plc-host: Long #21: the driver takes the low 8 bits of a text's count: 256 asked for 0 units. Try: a "
            "count of 255 at most, and the others with another offset.\n");
}

TEST_F(FormsTest, RefusalOfSeveralNames_IsNotToldAsThatOfOne) {
  write_file("machine.csv", "Day,DATE,,,,,,0,1,0,0,\nSpeed,INT,,,,,,1,1,0,0,\n");
  const std::string advice =
      "Try: a smaller count: one reply holds about 169 names. Else compare offset and count with the array's bounds, "
      "and name and scope with the controller's own list of variables.\n";
  for (const char* id : {"0", "1"}) {
    const Outcome outcome = run_on_simulator({"read", "--id", id, "--count", "256"});
    EXPECT_EQ(outcome.code, 1);
    EXPECT_THAT(outcome.out, HasSubstr("  refused "));
    EXPECT_THAT(outcome.out, EndsWith("  -\n"));
    EXPECT_THAT(outcome.err,
                EndsWith(": the controller refused one or more of the 256 names, status 0004 (3). " + advice));
  }
}

TEST_F(FormsTest, NumbersThatAskForOtherElements_ShowThemAsIncomplete) {
  const std::string reason = std::string(kOfHalves) + "offset 1, count 2 asked for Longs[0]";
  const std::string told = "plc-host: Longs #11: " + reason + ". Try: an even offset and an even count, 2 for each ";
  const Outcome text = run_on_simulator({"read", "--id", "11", "--offset", "1", "--count", "2"});
  EXPECT_EQ(text.code, 1);
  EXPECT_THAT(text.out, StartsWith("Longs #11  LINT[0..4]  incomplete "));
  EXPECT_THAT(text.out, EndsWith("  0\n"));
  EXPECT_EQ(text.err, told + "element.\n");
  EXPECT_EQ(without_times(run_on_simulator({"read", "--id", "11", "--offset", "1", "--count", "2", "--csv"}).out),
            "name,type,state,time,value,reason\nLongs #11,LINT[0..4],incomplete,T,0,\"" + reason + "\"\n");
  EXPECT_THAT(run_on_simulator({"read", "--id", "11", "--offset", "1", "--count", "2", "--json"}).out,
              HasSubstr(R"("value":0,"reason":")" + reason + "\""));
  for (const char* form : {"--raw", "--strict"}) {
    const Outcome none = run_on_simulator({"read", "--id", "11", "--offset", "1", "--count", "2", form});
    EXPECT_EQ(none.code, 1);
    EXPECT_EQ(none.out, "");
  }
  EXPECT_THAT(run_on_simulator({"read", "--id", "11", "--offset", "9", "--count", "5"}).err,
              HasSubstr("offset 9, count 5 asked for Longs[4] to Longs[5]; offsets 10 to 11 are outside 0..9. Try: "));
  const Outcome units = run_on_simulator({"read", "--id", "21", "--count", "257", "--json"}, {"--sentinel"});
  EXPECT_EQ(units.code, 1);
  const nlohmann::json object = nlohmann::json::parse(units.out);
  EXPECT_EQ(object["state"], "incomplete");
  EXPECT_EQ(object["value"].get<std::string>().size(), 2U);
  EXPECT_EQ(object["reason"], "the driver takes the low 8 bits of a text's count: 257 asked for 1 unit");
}

TEST_F(FormsTest, NumbersThatAskForSomethingElse_AreWhatWhyNames) {
  const Outcome none = run_on_simulator({"why", "--id", "11"});
  EXPECT_EQ(none.code, 1);
  EXPECT_THAT(none.out, HasSubstr("What went wrong\n  1. " + std::string(kOfHalves) +
                                  "offset 0, count 1 asked for no element\n"
                                  "     Try: Give an even offset and an even count, 2 for each element.\n"));
  const Outcome part = run_on_simulator({"why", "--id", "21", "--count", "300"});
  EXPECT_EQ(part.code, 1);
  EXPECT_THAT(part.out, HasSubstr("What went wrong\n  1. the driver takes the low 8 bits of a text's count: 300 asked "
                                  "for 44 units\n"
                                  "     Try: Give a count of 255 at most, and the others with another offset.\n"));
}

constexpr char kCutAtZero[] =
    "the driver stores a value of this type up to its first zero byte, and what follows is not known";

// Asks a simulator whose Day, a DATE, and whose second element of Days are what the test sets.
class WidthlessTest : public FormsTest {
 protected:
  void SetUp() override {
    write_file("machine.csv", "Day,DATE,,,,,,0,1,0,0,\nSpeed,INT,,,,,,1,1,0,0,\nDays,DATE,[0..1],,,,,2,1,0,0,\n");
    simulator_ = start_simulator();
  }
  void set(const std::string& words) {
    simulator_->type("set " + words + "\n");
    answered_ += "ok\n";
    ASSERT_TRUE(simulator_->wait_for(answered_));
  }
  Outcome ask(std::vector<std::string> words) {
    words.insert(words.end(), {"--address", "127.0.0.1", "--port", port_, "--tags", path("machine.csv")});
    return run(words);
  }

 private:
  std::unique_ptr<Child> simulator_;
  std::string answered_;
};

// Of 256, bytes 01 00, the driver stores what it stores of others that begin with 01.
TEST_F(WidthlessTest, TypeWithoutAWidth_IsNoValueInAnyForm) {
  const std::string advice =
      "plc-host why NAME shows the bytes of the reply. Declare it by a type with a width where one fits.";
  for (const auto& [value, stored] : {std::pair("256", "01"), std::pair("0", "nothing"), std::pair("257", "01 01")}) {
    set(std::string("Day ") + value);
    const std::string reason = std::string(kCutAtZero) + "; stored: " + stored;
    const std::string told = "plc-host: Day: " + reason + ". Try: " + advice + "\n";
    const std::string cell = "\"" + reason + "\"";
    for (const char* command : {"read", "batch"}) {
      const Outcome text = ask({command, "Day"});
      EXPECT_EQ(text.code, 1);
      EXPECT_THAT(text.out, HasSubstr("Day  DATE  incomplete  "));
      EXPECT_THAT(text.out, EndsWith("  -\n"));
      EXPECT_THAT(text.err, HasSubstr(told));
      EXPECT_EQ(without_times(ask({command, "--csv", "Day"}).out),
                "name,type,state,time,value,reason\nDay,DATE,incomplete,T,," + cell + "\n");
    }
    const Outcome raw = ask({"read", "--raw", "Day", "Speed"});
    EXPECT_EQ(raw.code, 1);
    EXPECT_EQ(raw.out, "");
    EXPECT_EQ(raw.err, told + "plc-host: no value is shown: 1 of 2 variables has none\n");
    EXPECT_EQ(ask({"read", "--strict", "Day"}).code, 1);
    EXPECT_THAT(ask({"read", "--json", "Day"}).out, HasSubstr(R"("value":null,"reason":")" + reason + R"(","try":)"));
    EXPECT_THAT(without_times(ask({"read", "--csv", "--id", "0"}).out), EndsWith(",incomplete,T,," + cell + "\n"));
    EXPECT_THAT(ask({"watch", "--csv", "--rounds", "1", "Day"}).out,
                HasSubstr(",incomplete,\"Day: " + reason + "\",\n"));
  }
  set("Days [256, 257]");
  EXPECT_THAT(without_times(ask({"read", "--csv", "Days"}).out),
              EndsWith("\nDays,DATE[0..1],incomplete,T,,\"" + std::string(kCutAtZero) + "\"\n"));
}

TEST_F(WidthlessTest, Why_ShowsTheBytesOfTheReply) {
  set("Day 256");
  set("Days [256, 1]");
  const Outcome day = ask({"why", "Day"});
  EXPECT_EQ(day.code, 1);
  EXPECT_THAT(day.out, HasSubstr("  01 00  (not to be trusted)\n"));
  EXPECT_THAT(day.out,
              HasSubstr("  1. " + std::string(kCutAtZero) +
                        "\n     Try: The value above is the bytes of the reply. Declare it by a type with a width "
                        "where one fits.\n"));
  EXPECT_THAT(ask({"why", "Days"}).out, HasSubstr("  01 00, 00 01  (not to be trusted)\n"));
  EXPECT_THAT(ask({"why", "--json", "Day"}).out, HasSubstr(R"("value":"01 00")"));
}

TEST_F(FormsTest, DryRunOfARunningController_WritesNothing) {
  auto simulator = start_simulator();
  const std::vector<std::string> target = {"--address", "127.0.0.1", "--port", port_, "--tags", path("machine.csv")};
  std::vector<std::string> dry = {"write", "--dry-run", "--json", "Speed=7"};
  dry.insert(dry.end(), target.begin(), target.end());
  EXPECT_EQ(without_times(run(dry).out),
            R"({"name":"Speed","id":1,"type":"INT","state":"checked","time":"T","value":7,"written":false,)"
            R"("verified":null})"
            "\n");
  std::vector<std::string> read = {"read", "--raw", "Speed"};
  read.insert(read.end(), target.begin(), target.end());
  EXPECT_EQ(run(read).out, "0\n");
}

TEST_F(FormsTest, BoolInAnyCapitals_IsTaken) {
  const std::string tags = path("machine.csv");
  for (const char* word : {"true", "True", "TRUE", "On", "oN"}) {
    const Outcome outcome = run({"write", "--dry-run", "--csv", "-q", "--tags", tags, std::string("Ready=") + word});
    EXPECT_THAT(outcome.out, EndsWith(",true,\n")) << word;
  }
  for (const char* word : {"false", "False", "FALSE", "Off", "oFF"}) {
    const Outcome outcome = run({"write", "--dry-run", "--csv", "-q", "--tags", tags, std::string("Ready=") + word});
    EXPECT_THAT(outcome.out, EndsWith(",false,\n")) << word;
  }
}

TEST_F(FormsTest, LongTextThatDoesNotFit_IsRepeatedInPart) {
  const std::string text = std::string(39, 'a') + "\xC3\xA9" + std::string(4056, 'b');
  const Outcome outcome = run({"write", "--dry-run", "--tags", path("machine.csv"), "Text=" + text});
  EXPECT_EQ(outcome.code, 1);
  EXPECT_THAT(outcome.err, StartsWith("plc-host: Text: the text that begins with '" + std::string(39, 'a') +
                                      "' has 4097 bytes, the string holds 20\n"));
}

TEST_F(FormsTest, TwoForms_AreAFaultOfTheCommandLine) {
  const std::string which = "plc-host: which form? Give one of --json, --csv, --raw and --format\n";
  EXPECT_EQ(run_on_simulator({"read", "Speed", "--format", "csv", "--json"}).err, which);
  EXPECT_EQ(run_on_simulator({"watch", "Speed", "--csv", "--raw"}).err, which);
  const Outcome wrong = run_on_simulator({"read", "Speed", "--format", "jsn"});
  EXPECT_EQ(wrong.code, 2);
  EXPECT_THAT(wrong.err, StartsWith("plc-host: --format jsn: give text, json (an object a line) or csv, did you mean "
                                    "json?"));
  EXPECT_EQ(run_on_simulator({"read", "Speed", "--int64-text"}).err, "plc-host: --int64-text goes with --json\n");
}

}  // namespace
