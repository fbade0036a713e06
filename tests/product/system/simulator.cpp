// The memory of simulator.h.
#include "tests/product/system/simulator.h"

#include <cstdlib>

namespace plc_test {
namespace {

std::vector<uint16_t> parse_words(const std::string& text) {
  std::vector<uint16_t> words;
  const char* at = text.c_str();
  for (char* end = nullptr; *at != '\0'; at = end) {
    words.push_back(static_cast<uint16_t>(std::strtoul(at, &end, 16)));
    if (end == at) break;
  }
  return words;
}

}  // namespace

Simulator::Simulator(const std::string& tag_file)
    : RunningSim(PLC_SIMULATOR, {"--sentinel", tag_file}, Errors::kShown) {}

std::map<std::string, SimElement> Simulator::memory() {
  std::map<std::string, SimElement> elements;
  for (const DumpedElement& element : dump()) {
    std::string name = element.name;
    if (!element.program.empty() && name.find('/') == std::string::npos) name = element.program + "/" + name;
    elements[name] = {name, parse_words(element.raw)};
  }
  return elements;
}

}  // namespace plc_test
