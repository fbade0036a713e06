// The folder of config_fixture.h.
#include "tests/tools/plc_gateway/config/config_fixture.h"

#include <algorithm>
#include <filesystem>

#include "tests/tools/plc_gateway/tag_line.h"
namespace plc_gateway_test {
namespace {

std::vector<std::string> lines_of(const plc_gateway::ConfigResult& result, uint32_t before) {
  std::vector<std::string> lines;
  for (const plc_gateway::Finding& finding : result.findings) {
    lines.push_back(std::to_string(finding.line == 0 ? 0 : finding.line - before) + ":" +
                    std::to_string(finding.column) + (finding.is_error ? ": error: " : ": note: ") + finding.text);
  }
  return lines;
}

}  // namespace

ConfigTest::ConfigTest() {
  std::filesystem::create_directory(folder_.file("tags"));
  std::filesystem::create_directory(folder_.file("journal"));
  folder_.write("tags/PLCC0A8000A_0.csv",
                tag_line("Speed", "INT") + tag_line("Level", "REAL") + tag_line("Motor.Speed", "DINT") +
                    tag_line("Motor.Run", "BOOL") + tag_line("Table", "INT", "[0..9]") +
                    tag_line("Grid", "LREAL", "[0..1_0..2]") + tag_line("Text", "STRING", "", "20") +
                    tag_line("Bits", "BOOL", "[0..15]") + tag_line("Small", "SINT") + tag_line("Day", "DATE") +
                    tag_line("Days", "DATE", "[0..3]") + tag_line("Big", "LINT") +
                    tag_line("Step", "UINT", "", "", "Main"));
}

plc_gateway::ConfigResult ConfigTest::load_text(const std::string& text) {
  return plc_gateway::load_config(folder_.write("gateway.toml", text));
}

plc_gateway::ConfigResult ConfigTest::load(const Sections& sections) {
  return load_text(sections.controller + sections.broker + sections.sparkplug + sections.journal + sections.poll +
                   sections.last);
}

std::vector<std::string> ConfigTest::said_of(const std::string& section, std::string Sections::*replaced) {
  Sections sections;
  if (replaced != nullptr) (sections.*replaced).clear();
  const std::string before =
      sections.controller + sections.broker + sections.sparkplug + sections.journal + sections.poll;
  return lines_of(load_text(before + section), static_cast<uint32_t>(std::count(before.begin(), before.end(), '\n')));
}

std::vector<std::string> ConfigTest::said_of_text(const std::string& text) { return lines_of(load_text(text), 0); }

}  // namespace plc_gateway_test
