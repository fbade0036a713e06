// Payloads of the standard: written for births, data and deaths, read for commands and the state of a host.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/plc_gateway/model/variable.h"

namespace plc_gateway {

// The standard's quality codes.
constexpr int32_t kQualityBad = 0;
constexpr int32_t kQualityGood = 192;
constexpr int32_t kQualityStale = 500;

// A metric of the node itself, not of a variable: "bdSeq", "Node Control/Rebirth", what the gateway tells of itself.
struct NodeMetric {
  std::string name;
  uint64_t alias = 0;  // 0: none
  DataType type = DataType::kInt64;
  bool has_value = true;
  uint64_t number = 0;  // of integers (two's complement), Boolean, and the bits of Float and Double
  std::string text;     // of String: any bytes, published as one line of UTF-8
  Ms time = 0;
};

// Collects the metrics of one message. The bytes are the standard's protobuf encoding.
class PayloadWriter {
 public:
  // Name, datatype, alias and value, or null with a quality: as births have them. Nullptr for a sample: the variable
  // was not read since it became part of the birth (null, stale).
  void birth(const Variable& variable, uint64_t alias, const Sample* sample, Ms now);
  // Alias and value alone; null with quality bad when not good; the quality too when it has just become good again.
  // What nobody has checked says so each time: the property "Unguarded" is true.
  void data(const Variable& variable, uint64_t alias, const Sample& sample, bool historical, bool tell_quality);
  void birth(const NodeMetric& metric);
  void data(const NodeMetric& metric);  // by alias when it has one

  size_t metrics() const;
  size_t bytes() const;  // so far
  // The whole payload, and the writer is empty again. Without seq for NDEATH.
  std::string finish(Ms timestamp, std::optional<uint64_t> seq);

 private:
  void append(const NodeMetric& metric, bool is_birth);

  std::string metrics_;
  size_t count_ = 0;
};

// A metric of a command.
struct CommandMetric {
  std::string name;  // empty when it has none
  std::optional<uint64_t> alias;
  std::optional<uint32_t> datatype;
  std::optional<Ms> time;
  bool is_historical = false;
  bool is_null = false;
  enum class Form : uint8_t { kNone, kInt, kLong, kFloat, kDouble, kBool, kString, kBytes, kOther } form = Form::kNone;
  uint64_t number = 0;  // kInt, kLong, kBool
  double real = 0;      // kFloat, kDouble
  std::string text;     // kString, kBytes
};

struct CommandMessage {
  std::optional<Ms> time;
  std::vector<CommandMetric> metrics;
};

constexpr size_t kMostCommandMetrics = 10000;

// Nothing when the bytes are no payload of the standard, when a name is no UTF-8, or when it is no command in size:
// more than 4 MiB, more than kMostCommandMetrics, or a name of more than 1000 bytes. Any bytes are safe.
std::optional<CommandMessage> read_command(std::string_view payload);

constexpr size_t kMostStateBytes = 4096;

struct HostState {
  std::string problem;  // why the text is no state, "has no timestamp"; empty when it is one
  bool online = false;
  Ms time = 0;
};

// Of a text such as {"online": true, "timestamp": 1700000000000}. Any bytes are safe.
HostState read_host_state(std::string_view payload);

// The elements of an array of numbers or BOOLs as the standard packs them, from their bits; and back, nothing when the
// bytes do not fit. Texts of an array of texts each end with a zero byte: there is nothing to pack.
std::string pack_array(DataType type, const std::vector<uint64_t>& elements);
std::optional<std::vector<uint64_t>> unpack_array(DataType type, std::string_view bytes);

// The {"value":...,"quality":"good","time":"2026-..."} of a variable's sample; "historical":true where it is.
// "unguarded" in place of "good" for what nobody has checked. When not good:
// {"value":null,"quality":"bad","reason":"refused",...}, with the client library's word for the reason. A real that is
// no number is null too, and stays good: its reason is "not a number", "infinity" or "minus infinity".
std::string json_of(const Variable& variable, const Sample& sample, bool historical);

}  // namespace plc_gateway
