// What visitors ask of plc-sim's page: methods, paths, hosts, origins, commands, and the answers.
#include <nlohmann/json.hpp>
#include <string>

#include "fuzz_input.h"
#include "judge.h"
#include "spelling.h"
#include "tools/plc_sim/page/visitor_check.h"
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
                                  "198.51.100.7:8080\n"};

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

}  // namespace

// A flag byte, then a line each for method, path, query, host and origin; the rest is the body.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t length) {
  static World world;
  fuzz::Input input(bytes, length);
  const uint8_t choice = input.byte();
  const std::string text = fuzz::spelled(input.text(), kWords);
  bool was_run = false;
  const plc_sim::WebPage page(world.store, world.faults, world.tally, [&](const std::string& line) {
    demand(line.rfind("set ", 0) == 0 || line.rfind("fault ", 0) == 0, "only set and fault are run");
    demand(line.find('\n') == std::string::npos, "a command is one line");
    was_run = true;
    return "ok\n";
  });
  plc_sim::WebRequest request;
  std::string host;
  std::string origin;
  size_t at = 0;
  for (std::string* part : {&request.method, &request.path, &request.query, &host, &origin}) {
    const size_t end = std::min(text.find('\n', at), text.size());
    *part = text.substr(at, end - at);
    at = std::min(end + 1, text.size());
  }
  request.body = text.substr(at);
  request.has_own_header = (choice & 1U) != 0;
  if ((choice & 2U) == 0) request.host = host;
  if ((choice & 4U) == 0) request.origin = origin;
  request.reached_at = "198.51.100.7";
  const uint16_t port = (choice & 8U) != 0 ? 80 : 8080;
  const auto refusal = plc_sim::refuse_foreign(request, {"192.0.2.1", port});
  if (refusal) {
    demand(refusal->status == plc_sim::kHttpForbidden && !refusal->body.empty(), "a refusal says so");
    demand(fuzz::is_shown(refusal->body), "a refusal is shown text");
  } else {
    demand(host.find("evil") == std::string::npos && request.host, "no other host is served");
    demand(!request.origin || *request.origin == "http://" + host, "no other page is served");
  }
  const plc_sim::WebAnswer answer = page.answer(request);
  demand(answer.status == 200 || answer.status == 403 || answer.status == 404 || answer.status == 405, "known answers");
  demand(!was_run || (request.method == "POST" && request.has_own_header && request.path == "/command"),
         "commands are posted by the page itself");
  demand(answer.status != 405 || !answer.allowed_method.empty(), "a wrong method is told the right one");
  if (answer.type == "application/json") {
    demand(nlohmann::json::accept(answer.body) && fuzz::is_shown(answer.body), "the state is JSON and shown text");
  }
  return 0;
}
