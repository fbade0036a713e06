// The road of a value for programs.
#include <nlohmann/json.hpp>

#include "client/values/value_type.h"
#include "tools/plc_host/client_names.h"
#include "tools/plc_host/results/result_json.h"
#include "tools/plc_host/results/result_writer.h"
#include "tools/plc_host/why/why_report.h"

namespace plc_host {
namespace {

using Json = nlohmann::ordered_json;
using wire_trace::Exchange;

std::string hex_of(const wire_trace::Bytes& bytes) { return wire_trace::hex_text(bytes, bytes.size()); }

Json tag_json(const WhyReport& report) {
  Json object = Json::object();
  const Tag* tag = report.tag();
  if (report.line) {
    object["file"] = report.source->path();
    object["line"] = report.line->number;
    object["text"] = report.line->text;
  }
  if (tag == nullptr) return object;
  const bool indexed = *report.position >= report.tags.plain_count;
  object["name"] = tag->qualified_name;
  object["indexed"] = indexed;
  if (!indexed) object["record"] = *report.position;
  object["type"] = declared_type(tag->entry);
  object["global"] = tag->entry.is_global == 1;
  if (tag->entry.is_global != 1) object["scope"] = tag->entry.scope_name;
  return object;
}

Json calls_json(const WhyReport& report) {
  Json calls = Json::array();
  for (const WhyCall& call : report.calls) {
    calls.push_back({{"reg_type", request_reg_type(*report.register_id)},
                     {"address", request_address(*report.register_id, call.offset)},
                     {"offset", call.offset},
                     {"count", call.count}});
  }
  return calls;
}

Json names_json(const Exchange& exchange, const wire_trace::Bytes& reply) {
  Json names = Json::array();
  const std::vector<wire_trace::SentName> sent = wire_trace::names_of(exchange.request);
  const std::vector<wire_trace::NameRecord> records = wire_trace::records_of(reply, sent.size());
  const bool is_reply = wire_trace::head_of(reply).is_reply;
  for (size_t i = 0; i < sent.size(); ++i) {
    Json name = {{"name", sent[i].name}, {"scope", sent[i].is_local ? Json(sent[i].program) : Json()}};
    const bool has_handle = is_reply && records[i].is_received && !records[i].handle.is_null();
    name["area"] = has_handle ? Json(records[i].handle.area) : Json();
    name["address"] = has_handle ? Json(records[i].handle.address) : Json();
    name["bit"] = has_handle ? Json(records[i].bit_number) : Json();
    names.push_back(name);
  }
  return names;
}

const char* ending_word(wire_trace::Ending ending) {
  switch (ending) {
    case wire_trace::Ending::kClosedByHost:
      return "closed by the host";
    case wire_trace::Ending::kClosedByController:
      return "closed by the controller";
    case wire_trace::Ending::kReset:
      return "reset";
    default:
      return "";
  }
}

Json exchange_json(const Exchange& exchange, const wire_trace::Bytes& taken) {
  Json object;
  const wire_trace::Bytes reply = exchange.reply();
  const wire_trace::ReplyHead head = wire_trace::head_of(reply);
  object["connection"] = exchange.connection + 1;
  object["kind"] = name_of(exchange.request.kind);
  object["sequence"] = exchange.request.sequence;
  object["request"] = hex_of(exchange.request_bytes);
  if (exchange.request.kind == plc_sim::RequestKind::kResolve) object["names"] = names_json(exchange, taken);
  object["reply"] = hex_of(reply);
  object["pieces"] = exchange.pieces.size();
  object["status"] = head.is_reply && head.status ? Json(*head.status) : Json();
  object["ms"] = exchange.time_ns() ? Json(static_cast<double>(*exchange.time_ns()) / 1e6) : Json();
  if (exchange.ending != wire_trace::Ending::kNone) object["ending"] = ending_word(exchange.ending);
  return object;
}

Json findings_json(const WhyReport& report, bool faults) {
  Json findings = Json::array();
  for (const WhyFinding& finding : report.findings) {
    if (finding.is_fault == faults) findings.push_back({{"what", finding.what}, {"try", finding.advice}});
  }
  return findings;
}

Json read_value_json(const WhyReport& report) {
  if (!report.by_type) return report.value.empty() ? Json() : Json(report.value);
  return value_json(report.by_type->entry, report.by_type->value, report.by_type->extents);
}

}  // namespace

void write_why_json(FILE* file, const WhyReport& report) {
  Json object;
  object["asked"] = report.asked;
  object["from"] = report.from;
  object["tag"] = tag_json(report);
  object["id"] = report.register_id ? Json(*report.register_id) : Json();
  object["calls"] = report.register_id ? calls_json(report) : Json::array();
  object["scope_number"] = report.sent_scope ? Json(*report.sent_scope) : Json();
  Json programs = Json::array();
  if (report.programs) {
    for (const wire_trace::Program& program : *report.programs) {
      programs.push_back({{"number", program.number}, {"name", program.name}});
    }
  }
  object["directory"] = report.programs ? programs : Json();
  if (report.times_asked > 0) {
    object["times_asked"] = report.times_asked;
    object["times_wrong"] = report.times_wrong;
  }
  Json exchanges = Json::array();
  for (const size_t index : report.road) {
    exchanges.push_back(exchange_json(report.exchanges[index], report.taken_of(report.exchanges[index])));
  }
  object["exchanges"] = exchanges;
  object["build"] = report.build.empty() ? Json() : Json(report.build);
  object["code"] = report.code ? Json(*report.code) : Json();
  object["printed"] = report.driver_lines;
  object["value"] = read_value_json(report);
  if (report.by_type) {
    const std::string unsaid = unsaid_in_json(report.by_type->entry, report.by_type->value, {});
    if (!unsaid.empty()) object["value_reason"] = unsaid;
  }
  object["wrong"] = findings_json(report, true);
  object["worth_knowing"] = findings_json(report, false);
  write_json_line(file, object);
}

}  // namespace plc_host
