// Writes the parts.
#include "tools/plc_host/survey_report/page_parts.h"

#include "base/page/html.h"
#include "base/shown_text.h"
#include "base/text.h"
#include "tools/plc_host/survey_report/report_words.h"
#include "tools/plc_host/survey_report/summary.h"
#include "wire/big_endian.h"
#include "wire/reply_parts.h"
#include "wire/wire.h"

namespace plc_host::survey {
namespace {

using plc_base::shown_html;
using plc_sim::Bytes;
using plc_sim::ByteView;
namespace wire = plc_sim::wire;

// A row of what stands in the heads of a request and its reply.
struct HeadPart {
  const char* name;
  size_t at;
  size_t bytes;
};

constexpr HeadPart kParts[] = {
    {"length L", 0, 4},           {"complement of L", 4, 4},        {"sequence number", wire::kSequenceAt, 2},
    {"class", wire::kClassAt, 1}, {"command", wire::kCommandAt, 1}, {"status", wire::kStatusAt, 2}};

// Why the part of the reply is not what the guarded build wants; empty when it is, or is not there.
std::string objection(const HeadPart& part, const ByteView& request, const ByteView& reply, bool is_refusal) {
  if (reply.size() < part.at + part.bytes) return reply.size() == 0 ? "" : "not there";
  switch (part.at) {
    case 0: {
      const bool is_right = uint64_t{reply.u32(0)} + wire::kLengthExcludes == reply.size();
      return is_right ? "" : "the reply has " + std::to_string(reply.size()) + " bytes";
    }
    case 4:
      return reply.u32(4) == ~reply.u32(0) ? "" : "not that of L";
    case wire::kStatusAt:
      return reply.u16(part.at) == 0 || is_refusal ? "" : "not 0";
    default:
      return reply.part(part.at, part.bytes).bytes() == request.part(part.at, part.bytes).bytes()
                 ? ""
                 : "not that of the request";
  }
}

std::string hex_cell(const Bytes& bytes) {
  constexpr size_t kMost = 48;
  return "<code>" + wire_trace::hex_text(bytes, kMost) + "</code>";
}

std::string frame_row(const HeadPart& part, const ByteView& request, const ByteView& reply, bool is_refusal) {
  const std::string wrong = objection(part, request, reply, is_refusal);
  // A request has no status: its body begins there.
  const bool has_request = part.at != wire::kStatusAt;
  std::string row = std::string("<tr><td>") + part.name + "</td><td>";
  if (has_request) row += hex_cell(request.part(part.at, part.bytes).bytes());
  row += wrong.empty() ? "</td><td>" : "</td><td class=\"wrong\">";
  row += hex_cell(reply.part(part.at, part.bytes).bytes());
  if (!wrong.empty()) row += " " + wrong;
  return row + "</td></tr>\n";
}

}  // namespace

std::string step_section(const std::string& title, const Step& step, const std::string& content) {
  if (!has_figures(step)) {
    return plc_base::html_section(title, "<p class=\"why\">" + shown_html(not_measured(step)) + "</p>\n");
  }
  std::string note;
  if (step.state == Step::State::kPartly) {
    note = "<p class=\"why\">Measured in part" + std::string(step.why.empty() ? "" : ": ") + shown_html(step.why) +
           ".</p>\n";
  }
  return plc_base::html_section(title, note + content);
}

std::string told_html(std::string_view name) { return shown_html(plc_base::told_name(name)); }

std::string html_list(const std::vector<std::string>& texts) {
  std::string list;
  for (const std::string& text : texts) list += (list.empty() ? "" : ", ") + told_html(text);
  return list;
}

std::string number_or(const std::optional<uint32_t>& number, const char* otherwise) {
  return number ? std::to_string(*number) : otherwise;
}

std::vector<std::string> figure_cells(const std::vector<double>& times) {
  if (times.empty()) return {"not measured", "not measured", "not measured"};
  const Spread spread = spread_of(times);
  return {shown_ms(spread.p50), shown_ms(spread.p99), shown_ms(spread.largest)};
}

std::string frame_html(const std::string& name, const Frame& frame) {
  const ByteView request(frame.request);
  const ByteView reply(frame.reply);
  const std::string title = name + ": " + shown_html(frame.title);
  std::string html = "<figure class=\"frame\"><figcaption>" + title;
  if (frame.packet > 0) html += "; packet " + std::to_string(frame.packet) + " of survey.pcapng";
  html += "</figcaption><div class=\"wide\" tabindex=\"0\" role=\"region\" aria-label=\"" + title + "\"><table><thead>";
  html +=
      "<tr><th scope=\"col\">part</th><th scope=\"col\">request</th><th scope=\"col\">reply</th></tr></thead><tbody>\n";
  for (const HeadPart& part : kParts) html += frame_row(part, request, reply, frame.is_refusal);
  const Bytes request_rest = request.part(wire::kHeadBytes, request.size()).bytes();
  const Bytes reply_rest = reply.part(wire::kReplyHeadBytes, reply.size()).bytes();
  html += "<tr><td>what follows</td><td>" + hex_cell(request_rest) + "</td><td>";
  html += frame.reply.empty() ? "no reply" : hex_cell(reply_rest);
  return html + "</td></tr>\n</tbody></table></div></figure>\n";
}

}  // namespace plc_host::survey
