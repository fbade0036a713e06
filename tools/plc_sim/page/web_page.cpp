// The page and what it asks for.
#include "tools/plc_sim/page/web_page.h"

#include <algorithm>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string_view>

#include "base/json_text.h"
#include "base/utf8.h"
#include "tools/plc_sim/page/page_files.h"
#include "tools/plc_sim/variables/listing.h"

namespace plc_sim {
namespace {

// What a browser redraws twice a second without effort; the page says when there is more.
constexpr size_t kMaxRows = 500;

struct PageFile {
  std::string_view path;
  std::string_view type;
  const std::string_view& content;
};

constexpr PageFile kFiles[] = {{"/", "text/html; charset=utf-8", kIndexHtml},
                               {"/page.css", "text/css; charset=utf-8", kPageCss},
                               {"/page.js", "text/javascript; charset=utf-8", kPageJs}};

// The beginning of a value that is longer than anybody reads in a table.
std::string shortened(const std::string& value) {
  constexpr size_t kMostBytes = 300;
  const std::string kept(plc_base::whole_characters(value, kMostBytes));
  return kept.size() < value.size() ? kept + "... (" + std::to_string(value.size()) + " bytes)" : kept;
}

const PageFile* file_at(const std::string& path) {
  const auto* file =
      std::find_if(std::begin(kFiles), std::end(kFiles), [&](const PageFile& f) { return f.path == path; });
  return file != std::end(kFiles) ? file : nullptr;
}

WebAnswer wrong_method(const std::string& text, const std::string& allowed) {
  WebAnswer answer = plain_answer(kHttpWrongMethod, text);
  answer.allowed_method = allowed;
  return answer;
}

}  // namespace

WebAnswer WebPage::answer(const WebRequest& request) const {
  if (request.path == "/command") {
    return request.method == "POST" ? command(request) : wrong_method("plc-sim: commands are posted\n", "POST");
  }
  const PageFile* file = file_at(request.path);
  if (file == nullptr && request.path != "/state") {
    return plain_answer(kHttpNotFound, "plc-sim: there is nothing here\n");
  }
  if (request.method != "GET" && request.method != "HEAD") {
    return wrong_method("plc-sim: this is read with GET\n", "GET, HEAD");
  }
  WebAnswer answer;
  answer.type = file != nullptr ? file->type : "application/json";
  answer.body = file != nullptr ? std::string(file->content) : state(request.query);
  return answer;
}

WebAnswer WebPage::command(const WebRequest& request) const {
  if (!request.has_own_header) return plain_answer(kHttpForbidden, "plc-sim: commands come from the page itself\n");
  const size_t line_end = std::min(request.body.find('\n'), request.body.size());
  if (request.body.find_first_not_of("\r\n", line_end) != std::string::npos) {
    return plain_answer(kHttpBadRequest,
                        "plc-sim: a request has one command: this one has more lines, and none was obeyed\n");
  }
  const std::string line = request.body.substr(0, line_end);
  const bool is_allowed = line.rfind("set ", 0) == 0 || line.rfind("fault ", 0) == 0;
  return is_allowed ? plain_answer(200, run_command_(line))
                    : plain_answer(kHttpForbidden, "plc-sim: only set and fault can be used here\n");
}

std::string WebPage::state(const std::string& part) const {
  nlohmann::ordered_json json;
  json["listening"] = head_.listening;
  json["files"] = head_.files;
  json["replay"] = head_.replay;
  const Listed listed = list_elements(store_, part, kMaxRows);
  json["elements"] = nlohmann::ordered_json::array();
  for (const ListedElement& element : listed.elements) {
    json["elements"].push_back({{"name", element.name}, {"type", element.type}, {"text", shortened(element.value)}});
  }
  json["more"] = listed.has_more;
  const Tally::Counts& counts = tally_.counts;
  json["counts"] = {{"connections", counts.connections},
                    {"requests", counts.requests},
                    {"violations", counts.violations},
                    {"refused", counts.refused},
                    {"outside", counts.outside}};
  json["last_violation"] = shortened(tally_.last_violation());
  json["faults"] = nlohmann::ordered_json::array();
  for (const FaultInfo& info : known_faults()) {
    json["faults"].push_back({{"name", info.name}, {"arguments", info.arguments}, {"help", info.help}});
    if (faults_.count_of(info.kind) > 0) {
      json["counts"][std::string("fault ") + info.name] = faults_.count_of(info.kind);
    }
  }
  json["armed"] = nlohmann::ordered_json::array();
  for (const Fault& fault : faults_.armed()) json["armed"].push_back(describe(fault));
  return plc_base::json_text(json);
}

}  // namespace plc_sim
