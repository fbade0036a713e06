// The second form of a value, for those who read no payloads of the standard.
#include <cmath>
#include <cstdio>
#include <ctime>
#include <set>

#include "base/json_text.h"
#include "tools/plc_gateway/model/data_types.h"
#include "tools/plc_gateway/sparkplug/payload.h"

namespace plc_gateway {
namespace {

constexpr int kFirstYear = 1900;
constexpr Ms kMsPerSecond = 1000;

// Empty for what JSON can say as a number.
std::string unsaid_word(const TypeFacts& facts, uint64_t bits) {
  if (facts.kind != ElementKind::kReal) return {};
  const double number = real_of_bits(bits, facts.bits);
  if (std::isfinite(number)) return {};
  if (std::isnan(number)) return "not a number";
  return number < 0 ? "minus infinity" : "infinity";
}

std::string json_element(const TypeFacts& facts, uint64_t bits) {
  return unsaid_word(facts, bits).empty() ? element_text(facts, bits) : "null";
}

// Why a value that was read is null, or elements of it: each word once, in a list with its first place, from 1 on.
std::string unsaid_reason(const Variable& variable, const Sample& sample) {
  const TypeFacts& facts = facts_of(variable.type);
  if (facts.kind != ElementKind::kReal) return {};
  if (!facts.is_array) return unsaid_word(facts, sample.bits);
  const auto elements = unpack_array(variable.type, sample.bytes).value_or(std::vector<uint64_t>());
  std::set<std::string> words;
  std::string reason;
  for (size_t i = 0; i < elements.size(); ++i) {
    const std::string word = unsaid_word(facts, elements[i]);
    if (word.empty() || !words.insert(word).second) continue;
    reason += (reason.empty() ? "" : "; ") + word + ": element " + std::to_string(i + 1);
  }
  return reason;
}

std::string hexadecimal_pairs(const std::string& bytes) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  std::string text;
  for (const char c : bytes) {
    const auto byte = static_cast<uint8_t>(c);
    if (!text.empty()) text += ' ';
    text += kDigits[byte >> 4];
    text += kDigits[byte & 0xF];
  }
  return text;
}

std::vector<std::string> element_texts(const Variable& variable, const std::string& bytes) {
  const TypeFacts& facts = facts_of(variable.type);
  std::vector<std::string> texts;
  if (facts.kind == ElementKind::kText) {
    for (size_t at = 0, end = 0; (end = bytes.find('\0', at)) != std::string::npos; at = end + 1) {
      texts.push_back(plc_base::json_text(nlohmann::json(bytes.substr(at, end - at))));
    }
    return texts;
  }
  const auto elements = unpack_array(variable.type, bytes);
  for (const uint64_t element : elements.value_or(std::vector<uint64_t>())) {
    texts.push_back(json_element(facts, element));
  }
  return texts;
}

// The elements from next on, bracketed as the dimensions from depth on are; fewer when there are no more.
std::string json_list(const std::vector<size_t>& shape, size_t depth, const std::vector<std::string>& texts,
                      size_t& next) {
  if (depth == shape.size()) return next < texts.size() ? texts[next++] : "null";
  std::string text = "[";
  for (size_t i = 0; i < shape[depth]; ++i) {
    if (i > 0) text += ',';
    text += json_list(shape, depth + 1, texts, next);
  }
  return text + "]";
}

std::string json_value(const Variable& variable, const Sample& sample) {
  const TypeFacts& facts = facts_of(variable.type);
  if (facts.is_array) {
    size_t next = 0;
    return json_list(variable.shape, 0, element_texts(variable, sample.bytes), next);
  }
  if (facts.kind == ElementKind::kText) return plc_base::json_text(nlohmann::json(sample.bytes));
  if (facts.kind == ElementKind::kBytes) return "\"" + hexadecimal_pairs(sample.bytes) + "\"";
  return json_element(facts, sample.bits);
}

std::string json_time(Ms time) {
  const Ms part = (time % kMsPerSecond + kMsPerSecond) % kMsPerSecond;
  const auto seconds = static_cast<time_t>((time - part) / kMsPerSecond);
  struct tm parts {};
  gmtime_r(&seconds, &parts);
  char text[96];
  std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", parts.tm_year + kFirstYear, parts.tm_mon + 1,
                parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec, static_cast<int>(part));
  return text;
}

}  // namespace

std::string json_of(const Variable& variable, const Sample& sample, bool historical) {
  std::string text = "{\"value\":" + (sample.good ? json_value(variable, sample) : "null");
  const char* const good = sample.unguarded ? "unguarded" : "good";
  text += std::string(",\"quality\":\"") + (sample.good ? good : "bad") + "\"";
  std::string reason;
  if (sample.good) {
    reason = unsaid_reason(variable, sample);
  } else if (sample.reason != plc_client::Reason::kNone) {
    reason = plc_client::reason_word(sample.reason);
  }
  if (!reason.empty()) text += ",\"reason\":\"" + reason + "\"";
  text += ",\"time\":\"" + json_time(sample.time) + "\"";
  if (historical) text += ",\"historical\":true";
  return text + "}";
}

}  // namespace plc_gateway
