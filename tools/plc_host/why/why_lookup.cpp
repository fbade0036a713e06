// Finds what is asked for in the tag list, and the calls that a read of it makes.
#include "tools/plc_host/why/why_lookup.h"

#include "base/text.h"
#include "client/plan/transfer_plan.h"
#include "client/values/value_type.h"
#include "tools/plc_host/client_names.h"
#include "tools/plc_host/target/wanted_names.h"
#include "tools/plc_host/why/why_findings.h"

namespace plc_host {
namespace {

std::vector<WhyCall> calls_of(const TagReference& reference) {
  std::vector<WhyCall> calls;
  const TagEntry& entry = reference.tag->entry;
  if (value_kind(entry) == ValueKind::kText) {
    for (const StringPiece& piece : plan_string_read(entry)) calls.push_back({piece.offset, piece.units});
    return calls;
  }
  const uint32_t units = host_units_per_element(entry);
  for (const ElementRun& run : plan_elements(reference, Direction::kRead)) {
    calls.push_back({run.offset * units, run.count * units});
  }
  return calls;
}

void tell_unknown_name(const std::string& name, const ReferenceError& error, WhyReport& report) {
  if (!is_pattern(name)) return find_name_faults(name, error.what(), report);
  report.fault("why follows one variable: " + plc_base::told_name(name) + " is a pattern",
               "Give the whole name; plc-host tags FILE '" + name + "' lists those that match.");
}

}  // namespace

std::optional<TagReference> look_up(const HostOptions& options, WhyReport& report) {
  TagReference reference;
  if (options.by_id) {
    const Tag* tag = find_tag_by_id(report.tags, options.register_id);
    if (tag == nullptr) {
      find_number_faults(options.register_id, report);
    } else {
      reference.tag = tag;
      reference.text = tag->qualified_name;
    }
    report.register_id = options.register_id;
    report.calls = {{options.offset, options.count}};
  } else {
    try {
      reference = find_reference(report.tags, options.names.front());
      report.register_id = reference.tag->register_id;
      report.calls = calls_of(reference);
    } catch (const ReferenceError& error) {
      tell_unknown_name(options.names.front(), error, report);
      reference.tag = nullptr;
    } catch (const PlanError& error) {
      report.fault(error.what(), "Declare the array with ranges from 0, or read it by number: --id, --offset.");
    }
  }
  if (reference.tag != nullptr) report.position = static_cast<size_t>(reference.tag - report.tags.tags.data());
  if (report.position && report.source) report.line = report.source->line_of(report.tags, *report.position);
  return reference.tag != nullptr ? std::optional<TagReference>(reference) : std::nullopt;
}

}  // namespace plc_host
