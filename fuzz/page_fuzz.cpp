// What visitors ask of plc-sim's page: methods, paths, queries, headers, bodies in pieces, and the answers.
#include <nlohmann/json.hpp>
#include <string>

#include "fuzz_input.h"
#include "judge.h"
#include "spelling.h"
#include "tools/plc_sim/page/visit.h"
#include "tools/plc_sim/page/web_page.h"

namespace {

using fuzz::demand;

constexpr const char* kTags =
    "D,INT,,,a,b,c,0,1,0,0,,DM1\nB,BOOL,[0..3],,a,b,c,2,1,0,0,,MR1\n<script>,INT,,,a,b,c,1,1,0,0,,DM1\n"
    "E\x1B[2J\xE2\x80\xAE,INT,,,a,b,c,3,1,0,0,,DM1\nL,DINT,[1..3],,a,b,c,4,0,0,5,MAIN,\n";

constexpr const char* kWords[] = {"GET\n",
                                  "HEAD\n",
                                  "POST\n",
                                  "PUT\n",
                                  "/\n",
                                  "/state\n",
                                  "/page.css\n",
                                  "/page.js\n",
                                  "/command\n",
                                  "/state",
                                  "..",
                                  "\n",
                                  "localhost:8080\n",
                                  "127.0.0.1:8080\n",
                                  "[::1]:8080\n",
                                  "192.0.2.1:8080\n",
                                  "evil.example\n",
                                  "evil.example:8080\n",
                                  "LOCALHOST:8080\n",
                                  "http://localhost:8080\n",
                                  "http://127.0.0.1:8080\n",
                                  "http://evil.example\n",
                                  "null\n",
                                  "set D 5",
                                  "fault delay 9",
                                  "quit",
                                  "set ",
                                  "D",
                                  "localhost:80",
                                  "http://",
                                  "localhost\n",
                                  "198.51.100.7\n",
                                  "198.51.100.7:8080\n",
                                  "same-origin\n",
                                  "none\n",
                                  "cross-site\n",
                                  "same-site\n",
                                  "1048577\n",
                                  "1048576",
                                  "99999999999999999999\n",
                                  "&",
                                  "=",
                                  "%"};

struct World {
  plc_sim::VariableStore store;
  plc_sim::FaultBook faults;
  plc_sim::Tally tally{[](const std::string&) {}};
  World() {
    store.declare(plc_sim::read_tag_text("tags", kTags).tags, {}, plc_sim::DirectoryOrder::kFile);
    faults.arm(plc_sim::parse_fault("delay 5 times=2"));
    faults.take(plc_sim::RequestKind::kRead);
  }
};

// What a visitor sends besides the method, the path and the query.
struct Sent {
  std::string host;
  std::string origin;
  std::string site;
  std::string length;
  uint8_t left_out = 0;  // a bit for each that does not come

  std::optional<std::string> header(const std::string& name) const {
    if (name == "Host" && (left_out & 1U) == 0) return host;
    if (name == "Origin" && (left_out & 2U) == 0) return origin;
    if (name == "Sec-Fetch-Site" && (left_out & 4U) == 0) return site;
    if (name == "Content-Length" && !length.empty()) return length;
    return name == "X-Plc-Sim" && (left_out & 8U) == 0 ? std::optional<std::string>("1") : std::nullopt;
  }
};

void judge_answer(const plc_sim::WebAnswer& answer) {
  demand(answer.status == 200 || answer.status == 400 || answer.status == 403 || answer.status == 404 ||
             answer.status == 405 || answer.status == 413,
         "known answers");
  demand(answer.status == 200 || (!answer.body.empty() && fuzz::is_shown(answer.body)), "a refusal is shown text");
  demand(answer.status != 405 || !answer.allowed_method.empty(), "a wrong method is told the right one");
  if (answer.type == "application/json") {
    demand(nlohmann::json::accept(answer.body) && fuzz::is_shown(answer.body), "the state is JSON and shown text");
  }
}

// As it stands, or again and again to a length at which the page stops keeping or reading it.
size_t body_bytes(const std::string& body, uint8_t how) {
  constexpr size_t kLengths[] = {1, 2, plc_sim::kMaxCommandBytes, plc_sim::kMaxDroppedBytes};
  return how < 0xF0 ? body.size() : kLengths[how % 4] + how / 4 % 2;
}

// The pieces of a body.
bool send_body(plc_sim::Visit& visit, const std::string& body, uint8_t how) {
  const size_t bytes = body_bytes(body, how);
  if (how < 0xF0) return visit.take(body);
  const std::string piece(4096, body.empty() ? 's' : body.front());
  bool goes_on = true;
  for (size_t sent = 0; sent < bytes && goes_on; sent += piece.size()) {
    goes_on = visit.take(std::string_view(piece).substr(0, bytes - sent));
    demand(goes_on || sent + piece.size() > plc_sim::kMaxDroppedBytes, "what may be dropped is read");
  }
  demand(goes_on == (bytes <= plc_sim::kMaxDroppedBytes), "nobody reads on for ever");
  return goes_on;
}

}  // namespace

// Which headers come, the port and how the body does; then a line each for method, path, query, host, origin, the site
// that asks and the length that is announced; the rest is the body.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t length) {
  static World world;
  fuzz::Input input(bytes, length);
  const uint8_t choice = input.byte();
  const uint8_t how = input.byte();
  const std::string text = fuzz::spelled(input.text(), kWords);
  bool was_run = false;
  const plc_sim::WebPage page(world.store, world.faults, world.tally, [&](const std::string& line) {
    demand(line.rfind("set ", 0) == 0 || line.rfind("fault ", 0) == 0, "only set and fault are run");
    demand(line.find('\n') == std::string::npos && line.size() <= plc_sim::kMaxCommandBytes, "a command is one line");
    was_run = true;
    return "ok\n";
  });
  plc_sim::WebRequest request;
  Sent sent;
  std::string query;
  size_t at = 0;
  for (std::string* part :
       {&request.method, &request.path, &query, &sent.host, &sent.origin, &sent.site, &sent.length}) {
    const size_t end = std::min(text.find('\n', at), text.size());
    *part = text.substr(at, end - at);
    at = std::min(end + 1, text.size());
  }
  sent.left_out = choice & 15U;
  // As HTTP takes it apart at its signs.
  for (size_t from = 0; from < query.size();) {
    const size_t end = std::min(query.find('&', from), query.size());
    const std::string_view part = std::string_view(query).substr(from, end - from);
    const size_t sign = part.find('=');
    plc_sim::add_argument(
        request.query, part.substr(0, sign),
        sign != std::string_view::npos ? std::optional<std::string_view>(part.substr(sign + 1)) : std::nullopt);
    from = end + 1;
  }
  request.reached_at = "198.51.100.7";
  const std::string method = request.method;
  const std::string path = request.path;
  const plc_sim::ServedAt served_at = {"192.0.2.1", static_cast<uint16_t>((choice & 16U) != 0 ? 80 : 8080)};
  plc_sim::Visit visit(std::move(request), [&sent](const char* name) { return sent.header(name); });
  if (const auto refusal = visit.answer_to_head()) {
    demand(refusal->status == plc_sim::kHttpTooLarge && sent.length.size() >= 7, "a body that is too long is refused");
    return 0;
  }
  const std::string body = text.substr(at);
  if (!send_body(visit, body, how)) return 0;
  bool was_asked = false;
  const plc_sim::WebAnswer answer = visit.answer(served_at, [&](const plc_sim::WebRequest& asked) {
    was_asked = true;
    demand(asked.host && asked.host->find("evil") == std::string::npos, "no other host is served");
    demand(!asked.origin || *asked.origin == "http://" + *asked.host, "no other page is served");
    demand(asked.body.size() == body_bytes(body, how) && asked.body.size() <= plc_sim::kMaxCommandBytes,
           "what is too long is not asked, nor cut");
    return page.answer(asked);
  });
  judge_answer(answer);
  const std::optional<std::string> site = sent.header("Sec-Fetch-Site");
  demand(!was_run || !site || *site == "same-origin" || *site == "none", "no other site sends commands");
  demand(!was_run || (was_asked && method == "POST" && sent.header("X-Plc-Sim") && path == "/command"),
         "commands are posted by the page itself");
  demand(was_asked || answer.status == plc_sim::kHttpForbidden || answer.status == plc_sim::kHttpTooLarge,
         "what the page is not asked is refused");
  return 0;
}
