// plc-host as a child, with a tag file and a simulator in a folder of its own.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/loopback.h"
#include "tests/support/temp_dir.h"
#include "tests/tools/plc_host/program_child.h"

namespace plc_host_test {

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

// One line per type, shape, scope and kind of bit; the last indexed id can never be asked for.
inline constexpr char kTagFile[] =
    "Ready,BOOL,,,,,,0,1,0,0,,MR\n"
    "Speed,INT,,,,,,1,1,0,0,,DM\n"
    "Total,DINT,,,,,,2,1,0,0,,DM\n"
    "Big,LINT,,,,,,3,1,0,0,,DM\n"
    "Temp,REAL,,,,,,4,1,0,0,,DM\n"
    "Exact,LREAL,,,,,,5,1,0,0,,DM\n"
    "Mask,WORD,,,,,,6,1,0,0,,DM\n"
    "Text,STRING,,20,,,,7,1,0,0,,DM\n"
    "Table,INT,[0..9],,,,,8,1,0,0,,DM\n"
    "Grid,DINT,[0..2_0..4],,,,,9,1,0,0,,DM\n"
    "Cube,REAL,[0..1_0..2_0..3],,,,,10,1,0,0,,DM\n"
    "Longs,LINT,[0..4],,,,,11,1,0,0,,DM\n"
    "Bits,BOOL,[0..15],,,,,12,1,0,0,,MR\n"
    "EmBits,BOOL,[0..15],,,,,13,1,0,0,,EM\n"
    "Motor.Run,BOOL,,,,,,14,1,0,0,,DM\n"
    "Line[2].On,BOOL,,,,,,15,1,0,0,,DM\n"
    "Grid1,INT,[1..3_1..4],,,,,16,1,0,0,,DM\n"
    "Odd,INT,[1..3_2..5],,,,,17,1,0,0,,DM\n"
    "Byte,BYTE,,,,,,18,1,0,0,,DM\n"
    "Count,INT,,,,,,19,0,0,1,MAIN,DM\n"
    "Flags,BOOL,[0..7],,,,,20,0,0,2,SUB,MR\n"
    "Long,STRING,,600,,,,21,1,0,0,,DM\n"
    "Idx0,INT,,,,,,262144,1,0,0,\n"
    "Idx1,REAL,,,,,,262145,1,0,0,\n"
    "Idx2,REAL,,,,,,262146,1,0,0,\n";

class ProgramTest : public testing::Test {
 protected:
  void SetUp() override {
    setenv("TMPDIR", folder_.path().c_str(), 1);
    // No settings of whoever runs the tests.
    setenv("XDG_CONFIG_HOME", folder_.path().c_str(), 1);
    write_file("machine.csv", kTagFile);
  }
  void TearDown() override {
    unsetenv("TMPDIR");
    unsetenv("XDG_CONFIG_HOME");
  }

  // With the time of day, which is another each time, left out.
  static std::string without_times(const std::string& text) {
    std::string kept;
    for (size_t at = 0; at < text.size();) {
      const bool is_time = text.compare(at, 2, "20") == 0 && text.size() > at + 23 && text[at + 23] == 'Z';
      kept += is_time ? "T" : std::string(1, text[at]);
      at += is_time ? 24 : 1;
    }
    return kept;
  }

  std::string path(const std::string& name) const { return folder_.file(name); }
  void write_file(const std::string& name, const std::string& text) { folder_.write(name, text); }

  // As it is called, with the library of the test unless that is given.
  std::vector<std::string> host_words(std::vector<std::string> words) const {
    const bool is_why = !words.empty() && words.front() == "why";
    const auto has = [&words](const char* word) { return std::find(words.begin(), words.end(), word) != words.end(); };
    const bool has_relay = is_why || has("-vv") || has("--live");
    words.insert(words.begin(), has_relay ? PLC_HOST_GIVEN_REACH : PLC_HOST_PROGRAM);
    const bool has_driver = has("--driver");
    if (words.size() > 1 && words[1][0] != '-' && !has_driver) words.insert(words.begin() + 2, {"--driver", library_});
    return words;
  }

  Outcome run(const std::vector<std::string>& words) { return run_words(host_words(words)); }

  Outcome run_words(const std::vector<std::string>& words) {
    Outcome outcome;
    Child child(words, path("out"), path("err"));
    outcome.code = child.wait();
    outcome.out = file_text(path("out"));
    outcome.err = file_text(path("err"));
    return outcome;
  }

  // A command on a simulator of its own.
  Outcome run_on_simulator(std::vector<std::string> words, const std::vector<std::string>& simulator_arguments = {}) {
    words.insert(words.end(), {"--sim", path("machine.csv"), "--simulator", PLC_HOST_SIMULATOR});
    for (const std::string& argument : simulator_arguments) words.push_back("--sim-arg=" + argument);
    return run(words);
  }

  // At the same port each time.
  std::unique_ptr<Child> start_simulator(const std::vector<std::string>& arguments = {}) {
    std::vector<std::string> words = {PLC_HOST_SIMULATOR, "--listen", "127.0.0.1:" + port_, path("machine.csv")};
    words.insert(words.end(), arguments.begin(), arguments.end());
    // The line that is waited for must not be that of a simulator before.
    std::remove(path("sim_out").c_str());
    auto simulator = std::make_unique<Child>(words, path("sim_out"), path("sim_err"));
    EXPECT_TRUE(simulator->wait_for("listening on 127.0.0.1:" + port_ + "\n"));
    return simulator;
  }

  plc_test::TempDir folder_;
  std::string library_ = PLC_HOST_GUARDED;
  plc_test::HeldPort held_;
  const std::string port_ = std::to_string(held_.port());  // of simulators; refused where none runs
};

}  // namespace plc_host_test
