// Writes payloads, metric by metric into one growing buffer: nothing is allocated for a metric alone.
#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/wire_format_lite.h>
#include <sparkplug_payload.pb.h>

#include "base/shown_text.h"
#include "tools/plc_gateway/model/data_types.h"
#include "tools/plc_gateway/sparkplug/payload.h"

namespace plc_gateway {
namespace {

using google::protobuf::internal::WireFormatLite;
using google::protobuf::io::CodedOutputStream;
using schema::Metric;

// Alias and time of 11 bytes each, type and two flags of 2 each, two properties of 40, a value of 11.
constexpr size_t kMostFieldBytes = 96;
constexpr size_t kMostVarintBytes = 10;
constexpr uint32_t kQualityType = 3;
constexpr std::string_view kQualityKey = "Quality";
constexpr std::string_view kUnguardedKey = "Unguarded";
constexpr unsigned kIntBits = 32;

void append_varint(std::string& out, uint64_t value) {
  uint8_t bytes[kMostVarintBytes];
  const uint8_t* end = CodedOutputStream::WriteVarint64ToArray(value, bytes);
  out.append(reinterpret_cast<const char*>(bytes), static_cast<size_t>(end - bytes));
}

void append_tag(std::string& out, int field, WireFormatLite::WireType type) {
  append_varint(out, WireFormatLite::MakeTag(field, type));
}

uint8_t* put_key(std::string_view key, uint8_t* end) {
  end = WireFormatLite::WriteTagToArray(schema::PropertySet::kKeysFieldNumber,
                                        WireFormatLite::WIRETYPE_LENGTH_DELIMITED, end);
  end = CodedOutputStream::WriteVarint32ToArray(static_cast<uint32_t>(key.size()), end);
  return CodedOutputStream::WriteRawToArray(key.data(), static_cast<int>(key.size()), end);
}

// A value of a number or BOOL, in that field.
uint8_t* put_property(uint32_t type, int field, uint32_t number, uint8_t* end) {
  uint8_t value[2 * (1 + kMostVarintBytes)];
  uint8_t* value_end = WireFormatLite::WriteUInt32ToArray(schema::PropertyValue::kTypeFieldNumber, type, value);
  value_end = WireFormatLite::WriteUInt32ToArray(field, number, value_end);
  const auto length = static_cast<uint32_t>(value_end - value);
  end = WireFormatLite::WriteTagToArray(schema::PropertySet::kValuesFieldNumber,
                                        WireFormatLite::WIRETYPE_LENGTH_DELIMITED, end);
  end = CodedOutputStream::WriteVarint32ToArray(length, end);
  return CodedOutputStream::WriteRawToArray(value, static_cast<int>(length), end);
}

// A metric in the order of its fields: the name, what has few bytes, and a text or bytes of any length. The views must
// outlive it.
class MetricFields {
 public:
  void set_name(std::string_view name) { name_ = name; }
  void add_number(int field, uint64_t value) { end_ = WireFormatLite::WriteUInt64ToArray(field, value, end_); }
  void add_flag(int field) { end_ = WireFormatLite::WriteBoolToArray(field, true, end_); }

  // What stands beside the value.
  void add_properties(std::optional<int32_t> quality, bool is_unguarded) {
    if (!quality && !is_unguarded) return;
    uint8_t set[kMostFieldBytes];
    uint8_t* end = set;
    if (quality) end = put_key(kQualityKey, end);
    if (is_unguarded) end = put_key(kUnguardedKey, end);
    constexpr int kInt = schema::PropertyValue::kIntValueFieldNumber;
    constexpr int kBool = schema::PropertyValue::kBooleanValueFieldNumber;
    if (quality) end = put_property(kQualityType, kInt, static_cast<uint32_t>(*quality), end);
    if (is_unguarded) end = put_property(static_cast<uint32_t>(DataType::kBoolean), kBool, 1, end);
    const auto length = static_cast<size_t>(end - set);
    begin_bytes(Metric::kPropertiesFieldNumber, length);
    end_ = CodedOutputStream::WriteRawToArray(set, static_cast<int>(length), end_);
  }

  // Last of all.
  void add_value(DataType type, uint64_t bits, std::string_view bytes) {
    const TypeFacts& facts = facts_of(type);
    if (facts.is_array || facts.bits == 0) {
      const bool is_text = facts.kind == ElementKind::kText && !facts.is_array;
      begin_bytes(is_text ? Metric::kStringValueFieldNumber : Metric::kBytesValueFieldNumber, bytes.size());
      tail_ = bytes;
      return;
    }
    switch (facts.kind) {
      case ElementKind::kBool:
        end_ = WireFormatLite::WriteBoolToArray(Metric::kBooleanValueFieldNumber, bits != 0, end_);
        return;
      case ElementKind::kReal:
        add_real(facts.bits, bits);
        return;
      case ElementKind::kSigned:
        bits = static_cast<uint64_t>(sign_extended(bits, facts.bits));
        break;
      default:
        break;
    }
    if (facts.bits > kIntBits) {
      add_number(Metric::kLongValueFieldNumber, bits);
    } else {
      end_ = WireFormatLite::WriteUInt32ToArray(Metric::kIntValueFieldNumber, static_cast<uint32_t>(bits), end_);
    }
  }

  void append_to(std::string& payload) const {
    const auto few = static_cast<size_t>(end_ - fields_);
    const size_t name_bytes =
        name_.empty() ? 0 : 1 + CodedOutputStream::VarintSize32(static_cast<uint32_t>(name_.size())) + name_.size();
    append_tag(payload, schema::Payload::kMetricsFieldNumber, WireFormatLite::WIRETYPE_LENGTH_DELIMITED);
    append_varint(payload, name_bytes + few + tail_.size());
    if (!name_.empty()) {
      append_tag(payload, Metric::kNameFieldNumber, WireFormatLite::WIRETYPE_LENGTH_DELIMITED);
      append_varint(payload, name_.size());
      payload.append(name_);
    }
    payload.append(reinterpret_cast<const char*>(fields_), few);
    payload.append(tail_);
  }

 private:
  void begin_bytes(int field, size_t length) {
    end_ = WireFormatLite::WriteTagToArray(field, WireFormatLite::WIRETYPE_LENGTH_DELIMITED, end_);
    end_ = CodedOutputStream::WriteVarint32ToArray(static_cast<uint32_t>(length), end_);
  }

  void add_real(unsigned width, uint64_t bits) {
    if (width == kIntBits) {
      end_ = WireFormatLite::WriteTagToArray(Metric::kFloatValueFieldNumber, WireFormatLite::WIRETYPE_FIXED32, end_);
      end_ = CodedOutputStream::WriteLittleEndian32ToArray(static_cast<uint32_t>(bits), end_);
    } else {
      end_ = WireFormatLite::WriteTagToArray(Metric::kDoubleValueFieldNumber, WireFormatLite::WIRETYPE_FIXED64, end_);
      end_ = CodedOutputStream::WriteLittleEndian64ToArray(bits, end_);
    }
  }

  std::string_view name_;
  uint8_t fields_[kMostFieldBytes];
  uint8_t* end_ = fields_;
  std::string_view tail_;
};

void add_sample(MetricFields& fields, DataType type, const Sample& sample, bool tell_quality) {
  if (!sample.good) fields.add_flag(Metric::kIsNullFieldNumber);
  std::optional<int32_t> quality;
  if (tell_quality || !sample.good) quality = sample.good ? kQualityGood : kQualityBad;
  fields.add_properties(quality, sample.good && sample.unguarded);
  if (sample.good) fields.add_value(type, sample.bits, sample.bytes);
}

}  // namespace

void PayloadWriter::birth(const Variable& variable, uint64_t alias, const Sample* sample, Ms now) {
  MetricFields fields;
  fields.set_name(variable.name);
  fields.add_number(Metric::kAliasFieldNumber, alias);
  fields.add_number(Metric::kTimestampFieldNumber, static_cast<uint64_t>(sample == nullptr ? now : sample->time));
  fields.add_number(Metric::kDatatypeFieldNumber, static_cast<uint64_t>(variable.type));
  if (sample == nullptr) {
    fields.add_flag(Metric::kIsNullFieldNumber);
    fields.add_properties(kQualityStale, false);
  } else {
    add_sample(fields, variable.type, *sample, true);
  }
  fields.append_to(metrics_);
  ++count_;
}

void PayloadWriter::data(const Variable& variable, uint64_t alias, const Sample& sample, bool historical,
                         bool tell_quality) {
  MetricFields fields;
  fields.add_number(Metric::kAliasFieldNumber, alias);
  fields.add_number(Metric::kTimestampFieldNumber, static_cast<uint64_t>(sample.time));
  if (historical) fields.add_flag(Metric::kIsHistoricalFieldNumber);
  add_sample(fields, variable.type, sample, tell_quality);
  fields.append_to(metrics_);
  ++count_;
}

void PayloadWriter::birth(const NodeMetric& metric) { append(metric, true); }

void PayloadWriter::data(const NodeMetric& metric) { append(metric, false); }

void PayloadWriter::append(const NodeMetric& metric, bool is_birth) {
  MetricFields fields;
  if (is_birth || metric.alias == 0) fields.set_name(metric.name);
  if (metric.alias != 0) fields.add_number(Metric::kAliasFieldNumber, metric.alias);
  fields.add_number(Metric::kTimestampFieldNumber, static_cast<uint64_t>(metric.time));
  if (is_birth) fields.add_number(Metric::kDatatypeFieldNumber, static_cast<uint64_t>(metric.type));
  // Reasons may hold what a driver or a controller said; decoders refuse a whole payload for one text that is not
  // UTF-8.
  const std::string text = plc_base::shown_line(metric.text);
  if (metric.has_value) {
    fields.add_value(metric.type, metric.number, text);
  } else {
    fields.add_flag(Metric::kIsNullFieldNumber);
  }
  fields.append_to(metrics_);
  ++count_;
}

size_t PayloadWriter::metrics() const { return count_; }

size_t PayloadWriter::bytes() const { return metrics_.size(); }

std::string PayloadWriter::finish(Ms timestamp, std::optional<uint64_t> seq) {
  std::string payload;
  payload.reserve(metrics_.size() + 2 * (1 + kMostVarintBytes));
  append_tag(payload, schema::Payload::kTimestampFieldNumber, WireFormatLite::WIRETYPE_VARINT);
  append_varint(payload, static_cast<uint64_t>(timestamp));
  payload += metrics_;
  if (seq) {
    append_tag(payload, schema::Payload::kSeqFieldNumber, WireFormatLite::WIRETYPE_VARINT);
    append_varint(payload, *seq);
  }
  metrics_.clear();
  count_ = 0;
  return payload;
}

}  // namespace plc_gateway
