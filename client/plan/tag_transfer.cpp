// Carries planned reads and writes out through the driver.
#include "client/plan/tag_transfer.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <utility>

#include "client/driver/failure.h"
#include "client/plan/program_check.h"
#include "client/values/value_type.h"

namespace plc_client::core {
namespace {

constexpr size_t kReplyBytes = 4096;  // a string reply can fill the buffer up to the length of the whole reply

size_t element_bytes(const TagEntry& entry) { return entry.bit_width / 8U; }

Reading failed_reading(const DriverSession& session, const CallResult& call, const std::string& progress,
                       const TagEntry& entry) {
  Failure failure = explain_failure(call, session.target());
  if (!failure.is_interrupted) failure.reason += progress + known_limit(entry);
  // Whether the type fits the variable is not the question: no 8-bit type can be read.
  const bool is_answer = failure.quality == Quality::kIncomplete || failure.quality == Quality::kFailed;
  if (!known_limit(entry).empty() && is_answer) failure.advice = "Declare a 16-bit variable.";
  return {failure, call.time};
}

// count: what the call was to write. Bits are set one after the other, and any of them may be the one that failed.
Reading failed_write(const DriverSession& session, const CallResult& call, const std::string& progress,
                     const TagEntry& entry, uint32_t count) {
  Failure failure = explain_failure(call, session.target());
  if (failure.is_interrupted) {
    failure = interrupted_write(failure, progress);
  } else {
    failure.cause = failure.reason;
    failure.reason += progress + known_limit(entry);
  }
  const bool has_several_parts =
      entry.bit_width == 1 && count > 1 && failure.code == PLC_FAILED && failure.quality != Quality::kImpossible;
  failure.has_begun = !progress.empty() || has_several_parts;
  if (leaves_write_open(failure) || has_several_parts) failure.reason += "; whether it was written is not known";
  return {failure, call.time};
}

std::string progress_text(uint64_t done, uint64_t all, const char* what) {
  if (done == 0) return {};
  return " after " + std::to_string(done) + " of " + std::to_string(all) + " " + what;
}

std::string bytes_until_zero(GuardedBuffer& buffer, size_t limit) {
  const auto* text = reinterpret_cast<const char*>(buffer.data());
  return std::string(text, strnlen(text, std::min(limit, buffer.size())));
}

Reading read_string(DriverSession& session, const TagReference& reference) {
  const Tag& tag = *reference.tag;
  TagValue value;
  CallResult call;
  for (const StringPiece& piece : plan_string_read(tag.entry)) {
    GuardedBuffer buffer(read_buffer_bytes(piece.units));
    call = session.read(*tag.register_id, piece.offset, piece.units, buffer);
    if (!call.ok()) return failed_reading(session, call, {}, tag.entry);
    const std::string text = bytes_until_zero(buffer, 2 * size_t{piece.units});
    value.text += text;
    if (text.size() < 2 * size_t{piece.units}) break;
  }
  if (goes_on_out_of_reach(tag.entry, value.text)) {
    return {text_out_of_reach(reachable_text_bytes(tag.entry)), call.time};
  }
  return {value, session.quality_of_success(), call.time};
}

Reading read_elements(DriverSession& session, const TagReference& reference) {
  const Tag& tag = *reference.tag;
  const bool raw = value_kind(tag.entry) == ValueKind::kRaw;
  const uint32_t host_units = host_units_per_element(tag.entry);
  TagValue value;
  CallResult call;
  for (const ElementRun& run : plan_elements(reference, Direction::kRead, session.rules())) {
    GuardedBuffer buffer(read_buffer_bytes(run.count));
    call = session.read(*tag.register_id, run.offset * host_units, run.count * host_units, buffer);
    if (!call.ok()) return failed_reading(session, call, {}, tag.entry);
    if (raw) {
      value.text += bytes_until_zero(buffer, buffer.size());
      continue;
    }
    append_elements(tag.entry, buffer.data(), run.count, value.elements);
  }
  if (raw) return {reference.extents.empty() ? cut_at_zero(value.text) : cut_at_zeros(), call.time};
  return {value, session.quality_of_success(), call.time};
}

Reading write_string(DriverSession& session, const PreparedWrite& write) {
  const Tag& tag = *write.reference.tag;
  CallResult call;
  for (const StringPiece& piece : write.pieces) {
    GuardedBuffer buffer(read_buffer_bytes(piece.units));
    const std::string text = write.value.text.substr(std::min(2 * size_t{piece.offset}, write.value.text.size()));
    std::memcpy(buffer.data(), text.data(), std::min(text.size(), 2 * size_t{piece.units}));
    call = session.write(*tag.register_id, piece.offset, piece.units, buffer);
    if (call.ok()) continue;
    const std::string progress = progress_text(2 * uint64_t{piece.offset}, write.value.text.size(), "bytes");
    return failed_write(session, call, progress, tag.entry, piece.units);
  }
  return {write.value, session.quality_of_success(), call.time};
}

Reading write_elements(DriverSession& session, const PreparedWrite& write) {
  const Tag& tag = *write.reference.tag;
  const uint32_t host_units = host_units_per_element(tag.entry);
  size_t done = 0;
  CallResult call;
  for (const ElementRun& run : write.runs) {
    GuardedBuffer buffer(read_buffer_bytes(run.count));
    encode_elements(tag.entry, write.value, done, run.count, buffer.data());
    call = session.write(*tag.register_id, run.offset * host_units, run.count * host_units, buffer);
    if (!call.ok()) {
      const std::string progress = progress_text(done, write.value.elements.size(), "elements");
      return failed_write(session, call, progress, tag.entry, run.count);
    }
    done += run.count;
  }
  return {write.value, session.quality_of_success(), call.time};
}

}  // namespace

size_t read_buffer_bytes(uint32_t count) { return std::max<size_t>(8 * size_t{count} + 8, 2 * kReplyBytes); }

std::string known_limit(const TagEntry& entry) {
  if (entry.bit_width == 8) return "; the driver transfers no 8-bit values";
  return {};
}

void append_elements(const TagEntry& entry, const uint8_t* data, uint32_t count, std::vector<uint64_t>& elements) {
  const size_t bytes = element_bytes(entry);
  for (uint32_t i = 0; i < count; ++i) {
    uint64_t bits = entry.bit_width == 1 ? uint64_t{data[i / 8]} >> (i % 8) & 1U : 0;
    for (size_t b = 0; b < bytes; ++b) bits |= uint64_t{data[i * bytes + b]} << (8 * b);
    elements.push_back(bits);
  }
}

std::vector<uint64_t> decode_elements(const TagEntry& entry, const uint8_t* data, uint32_t count) {
  std::vector<uint64_t> elements;
  elements.reserve(count);
  append_elements(entry, data, count, elements);
  return elements;
}

void encode_elements(const TagEntry& entry, const TagValue& value, size_t first, uint32_t count, uint8_t* data) {
  const size_t bytes = element_bytes(entry);
  for (uint32_t i = 0; i < count; ++i) {
    const uint64_t bits = value.elements.at(first + i);
    if (entry.bit_width == 1) data[i / 8] = static_cast<uint8_t>(data[i / 8] | (bits & 1) << (i % 8));
    for (size_t b = 0; b < bytes; ++b) data[i * bytes + b] = static_cast<uint8_t>(bits >> (8 * b));
  }
}

TagResult unread(const TagReference& reference) {
  TagResult result;
  result.name = reference.text;
  result.reference = reference;
  return result;
}

TagResult read_tag(DriverSession& session, const TagReference& reference) {
  TagResult result = unread(reference);
  const auto answered = [&session] { return session.figures().calls - session.figures().failures; };
  const uint64_t before = answered();
  try {
    const bool is_text = value_kind(reference.tag->entry) == ValueKind::kText;
    Reading reading = is_text ? read_string(session, reference) : read_elements(session, reference);
    const uint64_t calls = answered() - before;
    result.reading = of_own_program(session, *reference.tag, std::move(reading));
    if (!result.ok() && result.reading.failure().lacks_program) session.count_of_others(calls);
  } catch (const PlanError& error) {
    result.reading = {impossible(error.what()), std::chrono::system_clock::now()};
  }
  return result;
}

void Patience::take(const Reading& reading) {
  const bool lost = reading.value() == nullptr && reading.failure().connection_lost;
  if (lost && (was_lost_ || reading.failure().is_silence)) is_over_ = true;
  was_lost_ = lost;
  if (!lost) return;
  const Failure& failure = reading.failure();
  last_word_ = failure.quality == Quality::kRefused ? "refuses requests"
               : failure.has_answer                 ? "gives no valid reply"
                                                    : "does not answer";
}

Failure end_of(const Patience& patience, const Target& target) {
  return not_read(target_text(target) + " " + patience.last_word());
}

void read_tags(DriverSession& session, std::vector<TagResult>& results, const std::function<bool()>& stop,
               const std::function<void(const TagResult& result)>& done) {
  Patience patience;
  for (TagResult& result : results) {
    if (!result.is_found()) {
      // Says already why there is nothing to read.
    } else if (stop()) {
      result.reading = {not_read(kInterruptedWord), std::chrono::system_clock::now()};
    } else if (patience.is_over()) {
      result.reading = {end_of(patience, session.target()), std::chrono::system_clock::now()};
    } else {
      result = read_tag(session, result.reference);
      patience.take(result.reading);
    }
    done(result);
  }
}

PreparedWrite prepare_write(const TagReference& reference, TagValue value, const RequestRules& rules) {
  PreparedWrite write;
  write.reference = reference;
  write.value = std::move(value);
  const TagEntry& entry = reference.tag->entry;
  if (value_kind(entry) != ValueKind::kText) {
    write.runs = plan_elements(reference, Direction::kWrite, rules);
    return write;
  }
  // A zero byte behind the text ends it, unless the text fills the string.
  const size_t length = std::min(write.value.text.size() + 1, static_cast<size_t>(std::max(entry.string_length, 0)));
  write.pieces = plan_string_write(static_cast<uint32_t>(length / 2 + length % 2));
  return write;
}

PreparedWrite prepare_write(const TagReference& reference, std::string_view value_text, const RequestRules& rules) {
  // What cannot be written at all is the better answer to a value that is none either.
  if (value_kind(reference.tag->entry) != ValueKind::kText) plan_elements(reference, Direction::kWrite);
  return prepare_write(reference, parse_value(reference.tag->entry, value_text, reference.extents), rules);
}

TagResult write_tag(DriverSession& session, const PreparedWrite& write) {
  TagResult result = unread(write.reference);
  const Tag& tag = *write.reference.tag;
  std::optional<Failure> hindrance = program_hindrance(session, tag, rule_of_singles(tag));
  if (!hindrance) {
    const bool is_text = value_kind(tag.entry) == ValueKind::kText;
    result.reading = is_text ? write_string(session, write) : write_elements(session, write);
    hindrance = unclear_program(tag, result.reading);
    if (!hindrance) return result;
  }
  if (hindrance->lacks_program) hindrance->reason += "; nothing was written";
  if (hindrance->is_interrupted) hindrance = not_written(kInterruptedWord);
  result.reading = {*hindrance, std::chrono::system_clock::now()};
  return result;
}

size_t write_exchanges(const PreparedWrite& write, size_t calls) {
  constexpr size_t kPerCall = 2;
  if (write.reference.tag->entry.bit_width != 1) return kPerCall * calls;
  size_t count = 0;
  for (size_t i = 0; i < std::min(calls, write.runs.size()); ++i) {
    count += write.runs[i].count * exchanges_per_bit(write.reference.tag->entry);
  }
  return count;
}

bool same_value(const TagEntry& entry, const TagValue& written, const TagValue& read) {
  if (value_kind(entry) == ValueKind::kText) return written.text == read.text;
  return written.elements == read.elements;
}

}  // namespace plc_client::core
