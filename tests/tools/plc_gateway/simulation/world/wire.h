// The standard's payloads as a stranger reads and writes them: by field numbers, byte by byte, with no code of the
// gateway.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tests/tools/plc_gateway/simulation/world/random.h"
#include "tools/plc_gateway/model/variable.h"

namespace plc_gateway::simulation {

struct Metric {
  std::optional<std::string_view> name;
  std::optional<uint64_t> alias;
  std::optional<uint64_t> time;
  std::optional<uint64_t> datatype;
  bool historical = false;
  bool null = false;
  std::optional<int64_t> quality;
  unsigned value_field = 0;  // the field that holds the value; 0: none
  uint64_t number = 0;       // of a field of a number: its bits
  std::string_view bytes;    // of a text or of bytes
};

// Views into the payload that was read.
struct Payload {
  std::optional<uint64_t> time;
  std::optional<uint64_t> seq;
  std::vector<Metric> metrics;
};

// Throws Violation for bytes that break protobuf's rules or hold a field that the standard does not have.
void read_payload(std::string_view bytes, Payload& payload);

class PayloadMaker {
 public:
  void begin_metric() { metric_.clear(); }
  void number(unsigned field, uint64_t value);
  void fixed32(unsigned field, uint32_t bits);
  void fixed64(unsigned field, uint64_t bits);
  void text(unsigned field, std::string_view text);
  void end_metric();
  std::string finish(uint64_t time);

 private:
  std::string metric_;
  std::string metrics_;
};

// What the value of a sample looks like in a metric: its field, and its bits as they travel.
struct Expected {
  unsigned field = 0;
  uint64_t number = 0;
  bool is_bytes = false;
};
Expected expected_value(DataType type, uint64_t bits);
bool holds(const Metric& metric, DataType type, bool good, uint64_t bits, const std::string& bytes);

// The bytes of an element of a number or an array of numbers, 0 for what has none.
unsigned width_of(DataType type);
bool is_array(DataType type);

}  // namespace plc_gateway::simulation
