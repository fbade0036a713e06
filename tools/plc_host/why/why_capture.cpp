// Finds in a capture who asked for a name, and what became of it.
#include "tools/plc_host/why/why_capture.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <set>

#include "base/near_names.h"
#include "client/tags/device_kinds.h"
#include "client/values/value_text.h"
#include "client/values/value_type.h"
#include "tools/plc_host/client_names.h"
#include "tools/plc_host/exit_codes.h"
#include "tools/plc_host/host.h"
#include "tools/plc_host/why/why_findings.h"
#include "tools/plc_host/why/why_lookup.h"

namespace plc_host {
namespace {

using plc_sim::RequestKind;
using wire_trace::Bytes;
using wire_trace::Exchange;

// What is looked for in the names that were sent.
struct Wanted {
  std::string name;                // the first of elements
  std::set<std::string> elements;  // whole names, without '#'
  std::string base;                // or any element of this; empty for none
  std::optional<bool> is_local;    // nothing: either
};

// One request for names that holds a wanted one, and what followed on its connection.
struct Group {
  size_t resolve;                // position of the exchange
  std::vector<size_t> names;     // positions of the wanted names in it
  bool has_fault = false;        // there, behind it or when the connection was opened
  std::optional<size_t> values;  // the exchange that brought values
};

Wanted wanted_names(const HostOptions& options, const std::optional<TagReference>& reference) {
  Wanted wanted;
  if (!reference) {
    const std::string name = plain_name(options.names.front().c_str());
    const size_t slash = name.find('/');
    wanted.name = slash == std::string::npos ? name : name.substr(slash + 1);
    wanted.elements = {wanted.name};
    wanted.base = wanted.name;
    if (slash != std::string::npos) wanted.is_local = true;
    return wanted;
  }
  const TagEntry& entry = reference->tag->entry;
  const std::string name = reference->tag->name;
  wanted.is_local = entry.is_global != 1;
  if (reference->chosen.empty()) {
    wanted.name = name;
    wanted.elements = {name};
    wanted.base = declared_ranges(entry).empty() && entry.shape != PLC_STRING ? "" : name;
    return wanted;
  }
  for (const Subscripts& element : chosen_elements(*reference)) {
    wanted.elements.insert(name + subscript_text(element));
    if (wanted.name.empty()) wanted.name = name + subscript_text(element);
  }
  return wanted;
}

bool is_wanted(const Wanted& wanted, const std::string& wire_name) {
  const std::string name = plain_name(wire_name.c_str());
  if (wanted.elements.count(name) != 0) return true;
  return !wanted.base.empty() && name.compare(0, wanted.base.size() + 1, wanted.base + "[") == 0;
}

bool is_opening(const Exchange& exchange) {
  return exchange.request.kind == RequestKind::kDirectoryStart || exchange.request.kind == RequestKind::kDirectory;
}

// The exchanges that opened the connection of this one, and those that followed until the next names.
std::vector<size_t> road_of(const std::vector<Exchange>& exchanges, size_t resolve) {
  std::vector<size_t> road;
  for (size_t i = 0; i < exchanges.size(); ++i) {
    if (exchanges[i].connection != exchanges[resolve].connection) continue;
    if (i < resolve && is_opening(exchanges[i])) road.push_back(i);
    if (i == resolve) road.push_back(i);
    if (i <= resolve) continue;
    if (is_opening(exchanges[i]) || exchanges[i].request.kind == RequestKind::kResolve) break;
    road.push_back(i);
  }
  return road;
}

std::vector<size_t> wanted_among(const std::vector<wire_trace::SentName>& sent, const Wanted& wanted) {
  std::vector<size_t> names;
  for (size_t n = 0; n < sent.size(); ++n) {
    const bool in_scope = !wanted.is_local || *wanted.is_local == sent[n].is_local;
    if (in_scope && is_wanted(wanted, sent[n].name)) names.push_back(n);
  }
  return names;
}

bool is_wrong(const std::vector<Exchange>& exchanges, size_t index) {
  const std::vector<wire_trace::Remark> remarks = wire_trace::judge_exchange(exchanges, index, 1);
  return std::any_of(remarks.begin(), remarks.end(), [](const wire_trace::Remark& remark) { return remark.is_fault; });
}

// What a connection has seen so far.
struct Open {
  bool has_fault = false;       // when it was opened
  std::optional<size_t> group;  // that what follows belongs to
};

// An exchange that is no opening, on its connection.
void take_exchange(const std::vector<Exchange>& exchanges, size_t index, const Wanted& wanted, Open& here,
                   std::vector<Group>& groups) {
  const RequestKind kind = exchanges[index].request.kind;
  if (kind == RequestKind::kResolve) {
    std::vector<size_t> names = wanted_among(wire_trace::names_of(exchanges[index].request), wanted);
    here.group = names.empty() ? std::nullopt : std::optional<size_t>(groups.size());
    if (here.group) groups.push_back({index, std::move(names), here.has_fault, std::nullopt});
  }
  if (!here.group) return;
  Group& group = groups[*here.group];
  group.has_fault = is_wrong(exchanges, index) || group.has_fault;
  if (kind == RequestKind::kRead) group.values = index;
}

// Each exchange is looked at once: captures are as long as people let them grow.
std::vector<Group> find_groups(const std::vector<Exchange>& exchanges, const Wanted& wanted) {
  std::vector<Group> groups;
  std::map<size_t, Open> connections;
  for (size_t i = 0; i < exchanges.size(); ++i) {
    Open& here = connections[exchanges[i].connection];
    if (is_opening(exchanges[i])) {
      here.has_fault = is_wrong(exchanges, i) || here.has_fault;
      here.group = std::nullopt;
    } else {
      take_exchange(exchanges, i, wanted, here, groups);
    }
  }
  return groups;
}

// The bit of a BOOL in the word that came: by its own address, or by its place in the word.
uint64_t bit_of(const TagEntry& entry, const wire_trace::NameRecord& record, const Bytes& value) {
  constexpr uint32_t kLowFourBits = 0x0F;
  const bool is_member = entry.name_kind != 1 && (entry.device_kind == kDmDevice || entry.device_kind == kEmDevice ||
                                                  entry.device_kind == kNoDevice);
  const bool is_in_word = is_member || (entry.dim1_high != 0 && entry.device_kind == kEmDevice);
  const uint32_t bit = (is_in_word ? record.bit_number : record.handle.address) & kLowFourBits;
  const unsigned word = static_cast<unsigned>(value[0]) << 8U | value[1];
  return word >> bit & 1U;
}

// Nothing when a part of it did not come.
std::optional<TagValue> value_from(const TagEntry& entry, const Exchange& resolve, const Exchange& values,
                                   const std::vector<size_t>& names) {
  constexpr size_t kWordBytes = 2;  // what a bit comes in
  TagValue value;
  const auto records = wire_trace::records_of(resolve.reply(), wire_trace::names_of(resolve.request).size());
  const ValueKind kind = value_kind(entry);
  const bool is_text = kind == ValueKind::kText;
  const size_t least = is_text ? 1 : std::max<size_t>(entry.bit_width / 8U, kWordBytes);
  const Bytes reply = values.reply();
  for (const size_t n : names) {
    const Bytes bytes = wire_trace::value_of(values.request, reply, n);
    if (bytes.size() < least) return std::nullopt;
    if (is_text) {
      const auto* text = reinterpret_cast<const char*>(bytes.data());
      value.text.append(text, strnlen(text, bytes.size()));
    } else if (entry.bit_width == 1) {
      value.elements.push_back(bit_of(entry, records[n], bytes));
    } else {
      value.elements.push_back(decode_elements(entry, wire_trace::in_host_order(bytes).data(), 1).front());
    }
  }
  return value;
}

// False when values came, and not all bytes of this one.
bool take_value(const Group& group, const std::optional<TagReference>& reference, WhyReport& report) {
  if (!group.values || !report.exchanges[*group.values].is_answered()) return true;
  const Exchange& resolve = report.exchanges[group.resolve];
  const Exchange& values = report.exchanges[*group.values];
  if (!wire_trace::head_of(values.reply()).is_reply) return true;
  if (!reference) {
    report.value = bytes_of_values(values, group.names);
    return true;
  }
  if (value_kind(reference->tag->entry) == ValueKind::kRaw) {
    report.value = bytes_of_values(values, group.names);
    tell_cut_value(report);
    return true;
  }
  const TagEntry& entry = reference->tag->entry;
  const std::optional<TagValue> value = value_from(entry, resolve, values, group.names);
  if (!value) return false;
  const bool is_one = value->elements.size() == 1 || !value->text.empty();
  const std::vector<size_t> extents = is_one ? std::vector<size_t>() : std::vector<size_t>{value->elements.size()};
  report.set_value({entry, *value, extents});
  return true;
}

// What was asked for instead, when nobody asked for the name.
void explain_absence(const Wanted& wanted, WhyReport& report) {
  const std::string& name = wanted.name;
  std::vector<std::string> others;
  bool in_other_scope = false;
  for (const Exchange& exchange : report.exchanges) {
    for (const wire_trace::SentName& sent : wire_trace::names_of(exchange.request)) {
      others.push_back(plain_name(sent.name.c_str()));
      in_other_scope = in_other_scope || is_wanted(wanted, sent.name);
    }
  }
  std::sort(others.begin(), others.end());
  others.erase(std::unique(others.begin(), others.end()), others.end());
  if (in_other_scope) {
    const bool wants_local = wanted.is_local && *wanted.is_local;
    report.fault(name + " was asked for as a " + (wants_local ? "global variable" : "variable of a program") +
                     ", not as a " + (wants_local ? "variable of a program" : "global variable"),
                 "Compare column 9 of the tag file that the host had with the controller's declaration.");
    return;
  }
  const std::vector<std::string> near = plc_base::near_names(name, others);
  report.fault("nobody asked for " + name + " in this capture; " + std::to_string(others.size()) +
                   (others.size() == 1 ? " other name was asked for" : " other names were asked for"),
               near.empty()
                   ? "See whether the host asks for the number of this record at all, and whether its tag file "
                     "has the line: plc-sim --report lists what a host asks for."
                   : "Was " + plc_base::joined_with_or(near) + " meant? Letter case counts.");
}

void read_tags(const HostOptions& options, CommandOutput& output, WhyReport& report) {
  report.source = std::make_unique<TagSource>(options.tag_file);
  report.tags = read_tag_list(load_driver_library(options.driver), output, {options.tag_file, options.tag_file},
                              options.verbosity > 0);
}

}  // namespace

int follow_capture(const HostOptions& options, CommandOutput& output, WhyReport& report) {
  take_capture(options, wire_trace::read_recording_file(options.capture, options.capture_port), report);
  if (!options.tag_file.empty()) read_tags(options, output, report);
  return explain_capture(options, report);
}

void take_capture(const HostOptions& options, const wire_trace::CapturedRecording& captured, WhyReport& report) {
  report.from = options.capture;
  if (captured.recording.connections.empty()) throw HostError(kExitUsage, options.capture + ": " + captured.problem);
  if (!captured.problem.empty()) {
    report.remark(options.capture + ": " + captured.problem,
                  "Capture again: whole packets, none lost, and the capture stopped in good order.");
  }
  report.exchanges = wire_trace::find_exchanges(captured.recording);
}

int explain_capture(const HostOptions& options, WhyReport& report) {
  std::optional<TagReference> reference;
  if (!options.tag_file.empty()) reference = look_up(options, report);
  if (options.by_id && !reference) return kExitTagFailed;
  const Wanted wanted = wanted_names(options, reference);
  const std::vector<Group> groups = find_groups(report.exchanges, wanted);
  if (groups.empty()) {
    explain_absence(wanted, report);
    find_record_faults(report);
    return kExitTagFailed;
  }
  const auto wrong = [](const Group& group) { return group.has_fault; };
  const auto first_wrong = std::find_if(groups.begin(), groups.end(), wrong);
  const Group& shown = first_wrong != groups.end() ? *first_wrong : groups.back();
  report.times_asked = groups.size();
  report.times_wrong = static_cast<size_t>(std::count_if(groups.begin(), groups.end(), wrong));
  report.road = road_of(report.exchanges, shown.resolve);
  const bool is_whole = take_value(shown, reference, report);
  find_record_faults(report);
  find_opening_faults(report);
  find_scope_faults(report);
  find_transfer_faults(report);
  if (!is_whole && !report.has_fault()) {
    report.fault(std::string("there is no value: fewer bytes came than a ") +
                     type_name(reference->tag->entry.type_code) + " takes",
                 "Compare the type in the tag file that the host had with the controller's declaration.");
  }
  return report.has_fault() ? kExitTagFailed : kExitOk;
}

}  // namespace plc_host
