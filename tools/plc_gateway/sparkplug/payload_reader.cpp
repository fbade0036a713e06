// Reads what hosts send: commands, and whether a host is there.
#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/wire_format_lite.h>
#include <sparkplug_payload.pb.h>

#include <limits>
#include <nlohmann/json.hpp>
#include <utility>

#include "base/utf8.h"
#include "tools/plc_gateway/sparkplug/payload.h"

namespace plc_gateway {
namespace {

using google::protobuf::internal::WireFormatLite;
using google::protobuf::io::CodedInputStream;

constexpr size_t kMostCommandBytes = size_t{4} << 20;
constexpr size_t kMostAnsweredNameBytes = 1000;  // a refused name goes out again
constexpr uint32_t kTimeTag = schema::Payload::kTimestampFieldNumber << 3 | WireFormatLite::WIRETYPE_VARINT;
constexpr uint32_t kMetricTag = schema::Payload::kMetricsFieldNumber << 3 | WireFormatLite::WIRETYPE_LENGTH_DELIMITED;
constexpr uint32_t kDataTypeTag = schema::Metric::kDatatypeFieldNumber << 3 | WireFormatLite::WIRETYPE_VARINT;
constexpr uint32_t kIntTag = schema::Metric::kIntValueFieldNumber << 3 | WireFormatLite::WIRETYPE_VARINT;

HostState no_state(std::string problem) { return {std::move(problem), false, 0}; }

// A time that no clock shows stays beyond all clocks.
Ms time_of(uint64_t stamp) {
  constexpr auto kLast = static_cast<uint64_t>(std::numeric_limits<Ms>::max());
  return static_cast<Ms>(stamp < kLast ? stamp : kLast);
}

void take_value(const schema::Metric& from, CommandMetric& metric) {
  switch (from.value_case()) {
    case schema::Metric::kIntValue:
      metric.form = CommandMetric::Form::kInt;
      metric.number = from.int_value();
      return;
    case schema::Metric::kLongValue:
      metric.form = CommandMetric::Form::kLong;
      metric.number = from.long_value();
      return;
    case schema::Metric::kFloatValue:
      metric.form = CommandMetric::Form::kFloat;
      metric.real = static_cast<double>(from.float_value());
      return;
    case schema::Metric::kDoubleValue:
      metric.form = CommandMetric::Form::kDouble;
      metric.real = from.double_value();
      return;
    case schema::Metric::kBooleanValue:
      metric.form = CommandMetric::Form::kBool;
      metric.number = from.boolean_value() ? 1 : 0;
      return;
    case schema::Metric::kStringValue:
      metric.form = CommandMetric::Form::kString;
      metric.text = from.string_value();
      return;
    case schema::Metric::kBytesValue:
      metric.form = CommandMetric::Form::kBytes;
      metric.text = from.bytes_value();
      return;
    case schema::Metric::VALUE_NOT_SET:
      return;
    default:
      metric.form = CommandMetric::Form::kOther;
  }
}

// Whether each number is within its field: a parser keeps of a longer one the part that fits.
bool fits_fields(std::string_view metric) {
  CodedInputStream in(reinterpret_cast<const uint8_t*>(metric.data()), static_cast<int>(metric.size()));
  while (const uint32_t tag = in.ReadTag()) {
    if (tag == kDataTypeTag || tag == kIntTag) {
      uint64_t number = 0;
      if (!in.ReadVarint64(&number) || number > std::numeric_limits<uint32_t>::max()) return false;
    } else if (!WireFormatLite::SkipField(&in, tag)) {
      return false;
    }
  }
  return true;
}

CommandMetric metric_of(const schema::Metric& from) {
  CommandMetric metric;
  metric.name = from.name();
  if (from.has_alias()) metric.alias = from.alias();
  if (from.has_datatype()) metric.datatype = from.datatype();
  if (from.has_timestamp()) metric.time = time_of(from.timestamp());
  metric.is_historical = from.is_historical();
  metric.is_null = from.is_null();
  take_value(from, metric);
  return metric;
}

// The metrics are taken one by one: as one message of the schema, two bytes of a hostile payload would take hundreds.
bool take_metric(std::string_view payload, CodedInputStream& in, schema::Metric& scratch, CommandMessage& message) {
  uint32_t length = 0;
  if (!in.ReadVarint32(&length)) return false;
  const auto at = static_cast<size_t>(in.CurrentPosition());
  if (length > payload.size() - at || message.metrics.size() == kMostCommandMetrics) return false;
  if (!scratch.ParseFromArray(payload.data() + at, static_cast<int>(length))) return false;
  if (scratch.name().size() > kMostAnsweredNameBytes || !plc_base::is_utf8(scratch.name())) return false;
  message.metrics.push_back(metric_of(scratch));
  if (!fits_fields(payload.substr(at, length))) message.metrics.back().form = CommandMetric::Form::kOther;
  return in.Skip(static_cast<int>(length));
}

}  // namespace

std::optional<CommandMessage> read_command(std::string_view payload) {
  if (payload.size() > kMostCommandBytes) return std::nullopt;
  CodedInputStream in(reinterpret_cast<const uint8_t*>(payload.data()), static_cast<int>(payload.size()));
  CommandMessage message;
  schema::Metric scratch;
  while (const uint32_t tag = in.ReadTag()) {
    if (tag == kTimeTag) {
      uint64_t stamp = 0;
      if (!in.ReadVarint64(&stamp)) return std::nullopt;
      message.time = time_of(stamp);
    } else if (tag == kMetricTag) {
      if (!take_metric(payload, in, scratch, message)) return std::nullopt;
    } else if (!WireFormatLite::SkipField(&in, tag)) {
      return std::nullopt;
    }
  }
  if (!in.ConsumedEntireMessage()) return std::nullopt;
  return message;
}

HostState read_host_state(std::string_view payload) {
  if (payload.empty()) return no_state("is empty, as after its retained message was deleted");
  if (payload.size() > kMostStateBytes) {
    return no_state("has " + std::to_string(payload.size()) + " bytes, more than " + std::to_string(kMostStateBytes));
  }
  const auto json = nlohmann::json::parse(payload, nullptr, false);
  if (!json.is_object()) return no_state("is not a JSON object");
  const auto online = json.find("online");
  const auto time = json.find("timestamp");
  if (online == json.end()) return no_state("has no online");
  if (!online->is_boolean()) return no_state("has an online that is neither true nor false");
  if (time == json.end()) return no_state("has no timestamp");
  constexpr auto kLast = static_cast<uint64_t>(std::numeric_limits<Ms>::max());
  if (!time->is_number_unsigned() || time->get<uint64_t>() > kLast) {
    return no_state("has a timestamp that is not a time in milliseconds");
  }
  return {{}, online->get<bool>(), static_cast<Ms>(time->get<uint64_t>())};
}

}  // namespace plc_gateway
