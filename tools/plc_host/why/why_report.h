// Everything that is known of the road of one value, and what went wrong on it.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "client/plan/tag_transfer.h"
#include "client/tags/tag_list.h"
#include "client/tags/tag_source.h"
#include "tools/plc_host/client_names.h"
#include "wire/exchange.h"
#include "wire/judgement.h"
#include "wire/reply_parts.h"

namespace plc_host {

struct WhyFinding {
  std::string what;
  std::string advice;
  bool is_fault = true;  // false: worth knowing, but the value is not to be doubted for it
};

// A call of the driver, in its units.
struct WhyCall {
  uint32_t offset;
  uint32_t count;
};

// A value with what it is shown by.
struct TypedValue {
  TagEntry entry;
  TagValue value;
  std::vector<size_t> extents;
};

struct WhyReport {
  std::string asked;  // as on the command line
  std::string from;   // the controller's address, or the capture

  std::string build;        // of the driver that was called; empty for a capture
  bool is_guarded = false;  // then a call that returned 0 had its whole own reply

  TagList tags;
  std::unique_ptr<TagSource> source;  // null without a tag file
  std::optional<size_t> position;     // of the record in tags
  std::optional<TagLine> line;
  std::optional<uint32_t> register_id;
  std::vector<WhyCall> calls;

  std::vector<wire_trace::Exchange> exchanges;  // everything recorded
  std::vector<size_t> road;                     // those of this value, the opening of its connection before them
  std::optional<std::vector<wire_trace::Program>> programs;  // nothing when no directory came
  std::optional<uint8_t> sent_scope;
  size_t times_asked = 0;  // in a capture: how often, and how often something was wrong
  size_t times_wrong = 0;

  std::string value;                  // as text; empty when there is none
  std::optional<TypedValue> by_type;  // the same, when its type is known
  std::optional<uint32_t> code;       // what the driver returned
  std::vector<std::string> driver_lines;
  std::vector<WhyFinding> findings;

  const Tag* tag() const { return position ? &tags.tags[*position] : nullptr; }
  void fault(const std::string& what, const std::string& advice) { findings.push_back({what, advice, true}); }
  void remark(const std::string& what, const std::string& advice) { findings.push_back({what, advice, false}); }
  void set_value(const TypedValue& read);
  bool has_fault() const;
  // Of what came the right reply, which the guarded build finds behind others; all of it where there is none.
  wire_trace::Bytes taken_of(const wire_trace::Exchange& exchange) const;
};

void write_why_text(FILE* file, const WhyReport& report);
void write_why_json(FILE* file, const WhyReport& report);

}  // namespace plc_host
