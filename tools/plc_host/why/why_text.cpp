// The road of a value for people.
#include <algorithm>

#include "base/shown_text.h"
#include "base/text.h"
#include "client/values/utf8_text.h"
#include "client/values/value_text.h"
#include "client/values/value_type.h"
#include "tools/plc_host/client_names.h"
#include "tools/plc_host/why/why_report.h"

namespace plc_host {
namespace {

using plc_base::hexadecimal;

using wire_trace::Exchange;

constexpr size_t kMostLines = 8;        // lines for the names of one request
constexpr size_t kMostReplyBytes = 64;  // shown of one reply

void print_line(FILE* file, const std::string& text = {}) {
  std::fputs((plc_base::shown_line(text) + "\n").c_str(), file);
}

void print_heading(FILE* file, const std::string& text) {
  print_line(file);
  print_line(file, text);
}

void print_row(FILE* file, const char* heading, const std::string& text) {
  print_line(file, pad_columns(heading, 12) + text);
}

std::string call_text(const WhyReport& report) {
  std::string text;
  for (size_t i = 0; i < std::min(report.calls.size(), kMostLines); ++i) {
    const WhyCall& call = report.calls[i];
    text += (i == 0 ? "" : "; ") + hexadecimal(request_address(*report.register_id, call.offset), 8) + " (offset " +
            std::to_string(call.offset) + ", count " + std::to_string(call.count) + ")";
  }
  if (report.calls.size() > kMostLines) text += " and " + std::to_string(report.calls.size() - kMostLines) + " more";
  return text;
}

std::string scope_text(const WhyReport& report) {
  const TagEntry& entry = report.tag()->entry;
  if (entry.is_global == 1) return "global";
  std::string text = "local to " + quote_text(entry.scope_name);
  if (report.sent_scope) text += ", sent as number " + std::to_string(*report.sent_scope);
  return text;
}

void print_tag(FILE* file, const WhyReport& report) {
  const Tag* tag = report.tag();
  if (report.line) {
    print_row(file, "tag line",
              report.source->path() + ":" + std::to_string(report.line->number) + ": " + report.line->text);
  }
  if (tag == nullptr) return;
  const bool indexed = *report.position >= report.tags.plain_count;
  print_row(
      file, "record",
      indexed ? "indexed, id " + std::to_string(tag->entry.tag_id) : std::to_string(*report.position) + ", plain");
  if (report.register_id) {
    print_row(file, "id", std::to_string(*report.register_id) + " (" + hexadecimal(*report.register_id, 1) + ")");
    print_row(file, "reg_type", std::to_string(request_reg_type(*report.register_id)));
    if (!report.calls.empty()) print_row(file, "address", call_text(report));
  }
  print_row(file, "type", declared_type(tag->entry));
  print_row(file, "scope", scope_text(report));
}

void print_directory(FILE* file, const WhyReport& report) {
  if (!report.programs) return;
  std::string text;
  for (const wire_trace::Program& program : *report.programs) {
    text += (text.empty() ? "" : ", ") + std::to_string(program.number) + " " + quote_text(program.name);
  }
  print_row(file, "directory", text.empty() ? "empty" : text);
}

std::string reply_words(const Exchange& exchange) {
  if (!exchange.is_answered()) {
    switch (exchange.ending) {
      case wire_trace::Ending::kReset:
        return "connection reset";
      case wire_trace::Ending::kClosedByController:
        return "connection closed by the controller";
      case wire_trace::Ending::kClosedByHost:
        return "no reply, connection closed by the host";
      default:
        return "no reply";
    }
  }
  const wire_trace::Bytes reply = exchange.reply();
  const wire_trace::ReplyHead head = wire_trace::head_of(reply);
  std::string text = std::to_string(reply.size()) + " bytes";
  if (exchange.pieces.size() > 1) text += " in " + std::to_string(exchange.pieces.size()) + " pieces";
  if (!head.is_reply) return text + ", no reply head";
  if (head.status) text += ", status " + hexadecimal(*head.status, 4).substr(2);
  return text;
}

void print_exchanges(FILE* file, const WhyReport& report) {
  if (report.road.empty()) return;
  print_heading(file, "exchanges");
  for (size_t i = 0; i < report.road.size(); ++i) {
    const Exchange& exchange = report.exchanges[report.road[i]];
    const auto& bytes = exchange.request_bytes;
    const std::optional<int64_t> time = exchange.time_ns();
    const std::string code = bytes.size() >= 12 ? wire_trace::hex_text({bytes[10], bytes[11]}, 2) : "-";
    print_line(file, "  " + pad_columns(std::to_string(i + 1), 4) + pad_columns(name_of(exchange.request.kind), 17) +
                         pad_columns(code, 7) + "seq " +
                         pad_columns(hexadecimal(exchange.request.sequence, 4).substr(2), 6) +
                         pad_columns(time ? plc_base::milliseconds_text(*time, 2) : "-", 11) + reply_words(exchange));
  }
}

void print_names(FILE* file, const Exchange& exchange, const wire_trace::Bytes& reply, size_t number) {
  const std::vector<wire_trace::SentName> names = wire_trace::names_of(exchange.request);
  const std::vector<wire_trace::NameRecord> records = wire_trace::records_of(reply, names.size());
  const bool is_reply = wire_trace::head_of(reply).is_reply;
  print_heading(file, "names sent in exchange " + std::to_string(number) + ", handles received");
  if (names.empty()) print_line(file, "  none");
  for (size_t i = 0; i < std::min(names.size(), kMostLines); ++i) {
    std::string text = "  " + quote_text(names[i].name);
    text += names[i].is_local ? " in scope " + std::to_string(names[i].program) : " global";
    const bool has_handle = is_reply && records[i].is_received && !records[i].handle.is_null();
    text += has_handle
                ? " -> " + wire_trace::handle_text(records[i].handle) + ", bit " + std::to_string(records[i].bit_number)
                : " -> no handle";
    print_line(file, text);
  }
  if (names.size() > kMostLines) print_line(file, "  and " + std::to_string(names.size() - kMostLines) + " more");
}

void print_replies(FILE* file, const WhyReport& report) {
  for (size_t i = 0; i < report.road.size(); ++i) {
    const Exchange& exchange = report.exchanges[report.road[i]];
    if (exchange.request.kind == plc_sim::RequestKind::kResolve) {
      print_names(file, exchange, report.taken_of(exchange), i + 1);
    }
  }
  for (size_t i = 0; i < report.road.size(); ++i) {
    const Exchange& exchange = report.exchanges[report.road[i]];
    const bool opens = exchange.request.kind == plc_sim::RequestKind::kDirectoryStart ||
                       exchange.request.kind == plc_sim::RequestKind::kDirectory ||
                       exchange.request.kind == plc_sim::RequestKind::kResolve;
    if (opens || !exchange.is_answered()) continue;
    print_heading(file, "raw reply of exchange " + std::to_string(i + 1));
    std::string text;
    for (const wire_trace::Piece& piece : exchange.pieces) {
      text += (text.empty() ? "" : " | ") + wire_trace::hex_text(piece.bytes, kMostReplyBytes);
    }
    print_line(file, "  " + text);
  }
}

void print_driver(FILE* file, const WhyReport& report) {
  if (!report.code) return;
  print_line(file);
  print_row(file, "build", report.build);
  print_row(file, "returned", std::to_string(*report.code));
  for (const std::string& line : report.driver_lines) print_row(file, "printed", line);
}

void print_findings(FILE* file, const WhyReport& report) {
  print_heading(file, "What went wrong");
  size_t faults = 0;
  for (const WhyFinding& finding : report.findings) {
    if (!finding.is_fault) continue;
    print_line(file, "  " + std::to_string(++faults) + ". " + finding.what);
    print_line(file, "     Try: " + finding.advice);
  }
  if (faults == 0) print_line(file, "  nothing");
  if (faults == report.findings.size()) return;
  print_heading(file, "Worth knowing");
  for (const WhyFinding& finding : report.findings) {
    if (finding.is_fault) continue;
    print_line(file, "  - " + finding.what);
    print_line(file, "    Try: " + finding.advice);
  }
}

}  // namespace

void write_why_text(FILE* file, const WhyReport& report) {
  print_line(file, plc_base::shown_first(report.asked) + " from " + report.from);
  if (report.tag() != nullptr || report.programs) print_line(file);
  print_tag(file, report);
  print_directory(file, report);
  if (report.times_asked > 0) {
    print_row(
        file, "asked for",
        plc_base::plural(report.times_asked, "time") + ", " + std::to_string(report.times_wrong) + " with a fault");
  }
  print_exchanges(file, report);
  print_replies(file, report);
  print_driver(file, report);
  if (!report.value.empty()) {
    print_line(file);
    print_row(file, "value", report.value + (report.has_fault() ? "  (not to be trusted)" : ""));
  }
  print_findings(file, report);
}

}  // namespace plc_host
