// Puts what is known of a value's road into words.
#include "tools/plc_host/why/why_findings.h"

#include <algorithm>
#include <cstring>
#include <numeric>

#include "base/near_names.h"
#include "base/text.h"
#include "client/driver/driver_lines.h"
#include "client/driver/failure.h"
#include "client/plan/number_read.h"
#include "client/tags/element_offset.h"
#include "client/tags/meant_names.h"
#include "client/values/value_text.h"
#include "client/values/value_type.h"
#include "tools/plc_host/client_names.h"
#include "tools/plc_host/messages.h"
#include "wire/relay.h"

namespace plc_host {
namespace {

constexpr uint32_t kMostBools = 64;
constexpr uint32_t kLastStringOffset = 512;

// NAME without the subscripts at its end and without SCOPE/.
std::string bare_name(const std::string& name) {
  std::string bare = name;
  if (!bare.empty() && bare.back() == ']' && bare.rfind('[') != std::string::npos) bare.erase(bare.rfind('['));
  const size_t slash = bare.find('/');
  return slash == std::string::npos ? bare : bare.substr(slash + 1);
}

// The records that a name may mean: those of its scope, or else of all, its subscripts apart.
std::vector<size_t> positions_meant(const TagList& tags, const std::string& name) {
  const std::string bare = bare_name(name);
  const std::string scope = name.substr(0, name.find('/') + 1);
  std::vector<size_t> in_scope;
  std::vector<size_t> named;
  for (size_t i = 0; i < tags.tags.size(); ++i) {
    const Tag& tag = tags.tags[i];
    if (tag.name != bare && tag.name != name) continue;
    named.push_back(i);
    if (!scope.empty() && tag.qualified_name == scope + bare) in_scope.push_back(i);
  }
  return in_scope.empty() ? named : in_scope;
}

std::vector<std::string> names_in(const TagList& tags) {
  std::vector<std::string> names;
  for (const Tag& tag : tags.tags) {
    names.push_back(tag.qualified_name);
    if (tag.name != tag.qualified_name) names.push_back(tag.name);
  }
  return names;
}

void find_dropped_declaration(const std::string& bare, const tag_check::DroppedPiece& piece, WhyReport& report) {
  const std::string place = report.source->path() + ":" + std::to_string(piece.number) + " declares " + bare;
  switch (piece.reason) {
    case tag_check::DroppedPiece::Reason::kNoLineEnd:
      report.fault(place + ", but it is the last line and has no trailing newline: the driver ignores it",
                   "End the file with a newline: plc-host check FILE --fix COPY does it.");
      break;
    case tag_check::DroppedPiece::Reason::kTooLong:
      report.fault(place + ", but is longer than 255 bytes: the driver drops its beginning", "Shorten the line.");
      break;
    case tag_check::DroppedPiece::Reason::kZeroByte:
      report.fault(place + ", but holds a zero byte: the driver ignores it", "Remove the byte.");
      break;
  }
}

std::string program_list(const std::vector<wire_trace::Program>& programs) {
  std::string text;
  for (const wire_trace::Program& program : programs) {
    text += (text.empty() ? "" : ", ") + std::to_string(program.number) + " " + quote_text(program.name);
  }
  return text.empty() ? "no program" : text;
}

std::string write_near_scope(const std::string& scope, const std::vector<wire_trace::Program>& programs) {
  std::vector<std::string> names;
  names.reserve(programs.size());
  for (const wire_trace::Program& program : programs) names.push_back(program.name);
  const std::vector<std::string> near = plc_base::near_names(scope, names);
  const std::string which = near.empty() ? "the name of the variable's program" : plc_base::joined_with_or(near);
  return "Write " + which + " in column 12 of the line, exactly as the controller has it.";
}

// The program that the driver takes for a scope: plain records by the beginning of the name, indexed ones by all of it.
// In the guarded build a program of the whole name comes before all whose names are its beginning.
const wire_trace::Program* matched_program(const Tag& tag, bool indexed, bool is_guarded,
                                           const std::vector<wire_trace::Program>& programs) {
  const std::string scope = tag.entry.scope_name;
  const auto exact = std::find_if(programs.begin(), programs.end(),
                                  [&scope](const wire_trace::Program& program) { return program.name == scope; });
  if (is_guarded && exact != programs.end()) return &*exact;
  for (const wire_trace::Program& program : programs) {
    const bool matches = indexed ? scope == program.name : scope.compare(0, program.name.size(), program.name) == 0;
    if (matches) return &program;
  }
  return nullptr;
}

// The contract build takes what one receive delivers, and would take another request's reply too: then what the
// controller has is shown.
std::optional<std::vector<wire_trace::Program>> programs_taken(const wire_trace::Exchange& exchange, bool is_guarded) {
  const wire_trace::Bytes& front = exchange.pieces.front().bytes;
  const wire_trace::ReplyHead head = wire_trace::head_of(front);
  if (!is_guarded && head.is_reply && wire_trace::answers(head, exchange.request_bytes)) {
    return wire_trace::programs_of(front);
  }
  const std::optional<wire_trace::Bytes> reply = exchange.own_reply();
  return reply ? wire_trace::whole_directory(*reply) : std::nullopt;
}

// Then neither the directory nor a refusal is a controller's.
bool is_of_an_echo(const WhyReport& report) {
  return std::any_of(report.road.begin(), report.road.end(),
                     [&report](size_t index) { return report.exchanges[index].is_echo(); });
}

bool has_directory_answer(const WhyReport& report) {
  return std::any_of(report.road.begin(), report.road.end(), [&report](size_t index) {
    const wire_trace::Exchange& exchange = report.exchanges[index];
    return exchange.request.kind == plc_sim::RequestKind::kDirectory && exchange.is_answered();
  });
}

// Nobody is accused of what is not known.
void find_unknown_directory(const std::string& scope, const std::string& sent, WhyReport& report) {
  constexpr char kAdvice[] = "See what went wrong with the directory first.";
  if (!has_directory_answer(report)) {
    report.fault("no directory came from the controller: number " + sent + " from column 11 went with the name",
                 kAdvice);
    return;
  }
  const std::string what = "no whole directory is among what came for it: whether the controller has the program " +
                           quote_text(scope) + " is not known, and number " + sent + " went with the name";
  // The guarded build makes no connection without one.
  report.findings.push_back({what, kAdvice, !report.is_guarded});
}

void fill_from_road(WhyReport& report) {
  for (const size_t index : report.road) {
    const wire_trace::Exchange& exchange = report.exchanges[index];
    if (exchange.request.kind == plc_sim::RequestKind::kDirectory && exchange.is_answered()) {
      report.programs = programs_taken(exchange, report.is_guarded);
    }
    for (const plc_sim::NameBlock& block : exchange.request.blocks) {
      if (block.is_local && !report.sent_scope) report.sent_scope = block.program;
    }
  }
}

void check_element_range(WhyReport& report) {
  const Tag& tag = *report.tag();
  if (report.calls.empty()) return;
  const std::vector<SubscriptRange> ranges = declared_ranges(tag.entry);
  const WhyCall& call = report.calls.front();
  if (ranges.empty()) {
    const std::string odd = odd_numbers(tag, call.offset, call.count);
    if (!odd.empty()) report.remark(odd, "Leave --offset and --count away.");
    return;
  }
  const uint32_t units = host_units_per_element(tag.entry);
  for (uint32_t k = 0; k < std::max(call.count / units, 1U); ++k) {
    const std::optional<Subscripts> subscripts = subscripts_at(tag.entry, Direction::kRead, call.offset / units + k);
    if (!subscripts) return;
    for (size_t i = 0; i < ranges.size(); ++i) {
      if ((*subscripts)[i] >= ranges[i].low && (*subscripts)[i] <= ranges[i].high) continue;
      report.fault("index out of range: offset " + std::to_string(call.offset + k * units) +
                       " makes the driver ask for " + tag.qualified_name + subscript_text(*subscripts) +
                       ", declared is " + declared_type(tag.entry),
                   "Give an offset within the declared ranges; those of 64-bit types count 32-bit units.");
      return;
    }
  }
}

void check_readable(WhyReport& report) {
  const TagEntry& entry = report.tag()->entry;
  if (entry.type_code == 0 || std::strcmp(type_name(entry.type_code), "?") == 0) {
    report.fault("the variable has no type that the driver knows", "Give one of the type names in column 2.");
  } else if (entry.bit_width == 8) {
    report.fault(std::string("the driver reads no 8-bit values, and the variable is a ") + type_name(entry.type_code),
                 "Declare a 16-bit variable in the controller.");
  }
  if (report.calls.empty()) return;
  const WhyCall& call = report.calls.front();
  if (entry.bit_width == 1 && call.count > kMostBools) {
    report.fault("a read of more than 64 BOOLs fails before anything is sent", "Read the array in parts.");
  }
  if (entry.shape == PLC_STRING && call.offset > kLastStringOffset) {
    report.fault("a string read that begins beyond character 1024 names nothing",
                 "Read the string from its beginning.");
  }
}

// Nothing of a capture: whose traffic it is stands nowhere in it.
std::optional<wire_trace::Reader> reader_of(const WhyReport& report) {
  if (report.build.empty()) return std::nullopt;
  const auto is_rest = [](const std::string& line) {
    return line.find("guard: bytes behind the reply") != std::string::npos;
  };
  return wire_trace::Reader{report.is_guarded,
                            std::any_of(report.driver_lines.begin(), report.driver_lines.end(), is_rest)};
}

// The advice on a line of the driver sends people here: then it names the place in the report.
std::string advice_in_report(std::string advice) {
  for (const char* reference : {"plc-host why NAME shows what came", "plc-host why shows what came"}) {
    const size_t at = advice.find(reference);
    if (at == std::string::npos) continue;
    std::string place = "what came stands under exchanges, all of its bytes with --json or --pcap FILE";
    if (at == 0) place.front() = 'W';
    advice.replace(at, std::strlen(reference), place);
  }
  return advice;
}

// What was odd on the wire is no fault where the guarded build vouches for the value all the same.
void find_wire_faults(bool opening, WhyReport& report) {
  const bool is_vouched_for = report.is_guarded && report.code == std::optional<uint32_t>(PLC_OK);
  const std::optional<wire_trace::Reader> reader = reader_of(report);
  for (size_t i = 0; i < report.road.size(); ++i) {
    const plc_sim::RequestKind kind = report.exchanges[report.road[i]].request.kind;
    const bool opens = kind == plc_sim::RequestKind::kDirectoryStart || kind == plc_sim::RequestKind::kDirectory;
    if (opens != opening) continue;
    for (const wire_trace::Remark& remark :
         wire_trace::judge_exchange(report.exchanges, report.road[i], i + 1, reader)) {
      report.findings.push_back({remark.what, remark.advice, remark.is_fault && !is_vouched_for});
    }
  }
}

}  // namespace

void WhyReport::set_value(const TypedValue& read) {
  value = format_value(read.entry, read.value, read.extents);
  by_type = read;
}

wire_trace::Bytes WhyReport::taken_of(const wire_trace::Exchange& exchange) const {
  return is_guarded ? exchange.own_reply().value_or(exchange.reply()) : exchange.reply();
}

bool WhyReport::has_fault() const {
  return std::any_of(findings.begin(), findings.end(), [](const WhyFinding& finding) { return finding.is_fault; });
}

void find_name_faults(const std::string& name, const std::string& reason, WhyReport& report) {
  const std::string bare = bare_name(name);
  const tag_check::DroppedPiece* dropped = report.source ? report.source->dropped_declaration(bare) : nullptr;
  if (dropped != nullptr) return find_dropped_declaration(bare, *dropped, report);
  // Of several records none is shown: nobody chose one.
  const std::vector<size_t> meant_records = positions_meant(report.tags, name);
  if (meant_records.size() == 1) report.position = meant_records.front();
  const std::vector<std::string> near = plc_base::near_names(bare, names_in(report.tags));
  std::string advice = "List what can be asked for: plc-host tags FILE.";
  if (const std::optional<std::string> meant = respelled(report.tags, name)) {
    advice = "Did you mean " + *meant + "?";
  } else if (!meant_records.empty()) {
    advice = "Write scope, name and subscripts as the tag line declares them.";
  } else if (!near.empty()) {
    advice = "Did you mean " + plc_base::joined_with_or(near) + "? Letter case counts.";
  }
  report.fault(plc_base::told_name(name) + ": " + reason, advice);
}

void find_number_faults(uint32_t register_id, WhyReport& report) {
  for (size_t i = 0; i < report.tags.tags.size(); ++i) {
    const Tag& tag = report.tags.tags[i];
    const bool is_number = i < report.tags.plain_count ? i == register_id : tag.entry.tag_id == register_id;
    if (!is_number || tag.register_id) continue;
    report.position = i;
    report.fault("record " + tag.qualified_name + " cannot be addressed: " + tag.unreachable,
                 "End indexed ids with a line for nothing, keep each run in a block of 8192 ids of its own, and give "
                 "records behind number 65535 indexed ids: plc-host check FILE.");
    return;
  }
  report.fault("no record has the number " + std::to_string(register_id) + ": plain records are 0 to " +
                   std::to_string(std::max(report.tags.plain_count, 1U) - 1) +
                   (report.tags.max_indexed_id == 0
                        ? std::string(", there are no indexed ones")
                        : ", the largest indexed id is " + std::to_string(report.tags.max_indexed_id)),
               "plc-host tags FILE lists the numbers that can be asked for.");
}

void find_record_faults(WhyReport& report) {
  if (report.tag() == nullptr) return;
  check_readable(report);
  check_element_range(report);
  if (!report.source || !report.line) return;
  for (const TagSource::Remark& remark : report.source->remarks_on(report.line->number)) {
    report.remark(remark.text, remark.advice);
  }
}

void find_scope_faults(WhyReport& report) {
  fill_from_road(report);
  const Tag* tag = report.tag();
  if (tag == nullptr || tag->entry.is_global == 1 || !report.sent_scope || is_of_an_echo(report)) return;
  const std::string scope = tag->entry.scope_name;
  const std::string sent = std::to_string(*report.sent_scope);
  if (!report.programs) {
    find_unknown_directory(scope, sent, report);
    return;
  }
  const bool indexed = *report.position >= report.tags.plain_count;
  const wire_trace::Program* matched = matched_program(*tag, indexed, report.is_guarded, *report.programs);
  if (matched == nullptr) {
    report.fault("the scope " + quote_text(scope) + " is not among the controller's programs (" +
                     program_list(*report.programs) + "): number " + sent +
                     " from column 11 went with the name, and may be another program's",
                 write_near_scope(scope, *report.programs));
  } else if (matched->name != scope) {
    report.fault("the scope " + quote_text(scope) + " was taken for the program " + quote_text(matched->name) +
                     ", whose name is the beginning of it: number " + sent + " went with the name",
                 "The controller's programs are " + program_list(*report.programs) + ". " +
                     write_near_scope(scope, *report.programs));
  }
}

void find_recording_bound(bool is_cut, WhyReport& report) {
  if (!is_cut) return;
  const size_t mebibytes = wire_trace::RecordingRelay::kMostRecordedBytes >> 20U;
  report.remark(
      "more came than the " + std::to_string(mebibytes) + " MiB that are recorded: the exchanges end before it",
      "No read takes so much: see with tcpdump or tshark who sends it.");
}

void find_opening_faults(WhyReport& report) { find_wire_faults(true, report); }

void find_transfer_faults(WhyReport& report) { find_wire_faults(false, report); }

std::string bytes_of_values(const wire_trace::Exchange& values, const std::vector<size_t>& names) {
  constexpr size_t kMostBytes = 32;
  std::string text;
  const wire_trace::Bytes reply = values.reply();
  for (const size_t n : names) {
    text +=
        (text.empty() ? "" : ", ") + wire_trace::hex_text(wire_trace::value_of(values.request, reply, n), kMostBytes);
  }
  return text;
}

void tell_cut_value(WhyReport& report) {
  report.fault(kCutAtZero,
               "The value above is the bytes of the reply. Declare it by a type with a width where one fits.");
}

void find_cut_value(WhyReport& report) {
  if (report.tag() == nullptr || value_kind(report.tag()->entry) != ValueKind::kRaw) return;
  for (const size_t index : report.road) {
    const wire_trace::Exchange& values = report.exchanges[index];
    if (values.request.kind != plc_sim::RequestKind::kRead || !values.is_answered()) continue;
    std::vector<size_t> names(values.request.references.size());
    std::iota(names.begin(), names.end(), size_t{0});
    report.value += (report.value.empty() ? "" : ", ") + bytes_of_values(values, names);
  }
  tell_cut_value(report);
}

void find_driver_faults(WhyReport& report) {
  if (is_of_an_echo(report)) return;  // which the driver takes for a refusal
  // A cause that was seen on the wire goes before what the driver made of it.
  const bool is_known = report.has_fault();
  for (const std::string& line : report.driver_lines) {
    const std::optional<LineMeaning> meaning = meaning_of_line(line);
    if (!meaning) continue;
    const std::string what = "the driver printed " + quote_text(line) + ": " + meaning->meaning;
    report.findings.push_back({what, advice_in_report(meaning->advice), !is_known});
  }
  if (report.code && *report.code != PLC_OK && !report.has_fault()) {
    report.fault("the driver's read ended with: " + code_text(*report.code),
                 "Without a line of the driver's that means more than 64 BOOLs, a request that does not fit, an index "
                 "outside its run, an 8-bit type or an empty reply.");
  }
}

void find_road_faults(bool by_id, WhyReport& report) {
  find_record_faults(report);
  if (by_id && report.line && report.source) {
    for (const TagSource::Remark& remark : report.source->shifts_before(report.line->number)) {
      report.remark(remark.text, remark.advice);
    }
  }
  find_opening_faults(report);
  find_scope_faults(report);
  find_transfer_faults(report);
  find_driver_faults(report);
  if (report.code == std::optional<uint32_t>(PLC_OK)) find_cut_value(report);
}

}  // namespace plc_host
