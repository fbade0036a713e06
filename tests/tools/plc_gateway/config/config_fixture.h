// A folder with a configuration, a tag file and whatever else it names.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/temp_dir.h"
#include "tools/plc_gateway/config/config.h"

namespace plc_gateway_test {

// Sections in which nothing is wrong; a test replaces one of them.
struct Sections {
  std::string controller =
      "[controller]\n"
      "name = \"press1\"\n"
      "address = \"192.168.0.10\"\n"
      "tags = \"tags\"\n"
      "driver = \"" PLC_TEST_GUARDED "\"\n";
  std::string broker = "[broker]\nurl = \"mqtt://broker.plant\"\n";
  std::string sparkplug = "[sparkplug]\ngroup = \"Plant1\"\nedge_node = \"press1\"\n";
  std::string journal = "[journal]\nfolder = \"journal\"\n";
  std::string poll = "[[poll]]\nevery_ms = 500\nnames = [\"Speed\"]\n";
  // Not in every configuration; the last, so that its lines are counted from its own beginning.
  std::string last;
};

class ConfigTest : public testing::Test {
 protected:
  ConfigTest();

  // The configuration of these sections, `last` behind all others.
  plc_gateway::ConfigResult load(const Sections& sections);
  plc_gateway::ConfigResult load_text(const std::string& text);

  // "3:7: error: ...": what is said of a section that is put behind all others, with its own lines counted from 1.
  // `replaced` is the one that it stands for; it is left out.
  std::vector<std::string> said_of(const std::string& section, std::string Sections::*replaced = nullptr);
  // The same of a whole file.
  std::vector<std::string> said_of_text(const std::string& text);

  // With names that the tag file has: Speed, Level, Motor.*, Table, Text, Bits, Main/Step and more.
  plc_test::TempDir folder_;
};

}  // namespace plc_gateway_test
