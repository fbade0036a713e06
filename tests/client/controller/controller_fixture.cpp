// The simulator's memory and the fixture of controller_fixture.h.
#include "tests/client/controller/controller_fixture.h"

#include <cstdlib>
#include <sstream>

namespace plc_client_test {

using testing::HasSubstr;
using testing::Not;

Memory::Memory(plc_test::RunningSim& sim) {
  for (const plc_test::DumpedElement& element : sim.dump()) {
    if (!element.declared) continue;
    const std::string scope = element.program.empty() ? "" : element.program + "/";
    raw_[scope + element.variable].push_back(element.raw);
  }
}

const std::vector<std::string>& Memory::raw(const std::string& variable) const { return raw_.at(variable); }

std::vector<uint64_t> Memory::bits(const std::string& variable, unsigned width) const {
  constexpr unsigned kWordBits = 16;
  constexpr int kHexadecimal = 16;
  std::vector<uint64_t> all;
  for (const std::string& words : raw(variable)) {
    uint64_t value = 0;
    std::istringstream stream(words);
    unsigned shift = 0;
    for (std::string word; stream >> word; shift += kWordBits) {
      value |= std::strtoull(word.c_str(), nullptr, kHexadecimal) << shift;
    }
    all.push_back(width >= 64 ? value : value & ((uint64_t{1} << width) - 1));
  }
  return all;
}

std::string Memory::text(const std::string& variable, size_t declared) const {
  std::string text;
  std::istringstream stream(raw(variable).at(0));
  for (std::string word; stream >> word;) {
    text += static_cast<char>(std::strtoul(word.substr(0, 2).c_str(), nullptr, 16));
    text += static_cast<char>(std::strtoul(word.substr(2).c_str(), nullptr, 16));
  }
  return text.substr(0, std::min(text.find('\0'), declared));
}

std::vector<uint64_t> bits_of(const Value& value) {
  std::vector<uint64_t> all;
  for (size_t i = 0; i < value.size(); ++i) all.push_back(value.raw(i));
  return all;
}

std::string tag_line(const std::string& name, const std::string& type, const std::string& range,
                     const std::string& length, const std::string& program, const std::string& device) {
  const bool is_global = program.empty();
  return name + "," + type + "," + range + "," + length + ",,,,0," + (is_global ? "1,0,0," : "0,0,1,") + program +
         (device.empty() ? "" : "," + device) + "\n";
}

void ControllerTest::start(const std::string& tags, const std::vector<std::string>& arguments) {
  std::vector<std::string> words = arguments;
  words.push_back(folder_.write("PLC7F000001_0.csv", tags));
  sim_ = std::make_unique<plc_test::RunningSim>(PLC_TEST_SIMULATOR, words);
}

Options ControllerTest::options() const {
  Options options;
  options.address = "127.0.0.1";
  options.port = sim_ ? sim_->port() : uint16_t{1};
  options.tags = {folder_.path()};
  options.driver = PLC_TEST_GUARDED;
  options.log = [lines = lines_](const std::string& line) { lines->push_back(line); };
  return options;
}

void ControllerTest::expect_no_refusal_of_the_guard() const {
  for (const std::string& line : lines()) {
    EXPECT_THAT(line, Not(HasSubstr("guard: batch"))) << line;
    EXPECT_THAT(line, Not(HasSubstr("guard: write of"))) << line;
  }
}

void ControllerTest::TearDown() {
  if (!sim_ || may_violate_) return;
  EXPECT_EQ(sim_->count("violations"), 0U);
}

}  // namespace plc_client_test
