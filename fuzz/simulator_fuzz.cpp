// Fuzz target of everything that plc-sim reads: requests, captures, tag files and what visitors of the page ask. The
// first byte says which.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <sstream>
#include <string>

#include "tools/plc_sim/controller/controller.h"
#include "tools/plc_sim/page/visitor_check.h"
#include "tools/plc_sim/page/web_page.h"
#include "tools/plc_sim/server/replay.h"
#include "wire/captures/pcap_reader.h"
#include "wire/framing.h"

namespace {

using plc_sim::Bytes;

constexpr const char* kTags =
    "D,INT,,,a,b,c,0,1,0,0,,DM1\nQ,LINT,[0..9],,a,b,c,1,1,0,0,,DM1\nB,BOOL,[0..20],,a,b,c,2,1,0,0,,MR1\n"
    "a.b,BOOL,,,a,b,c,3,1,0,0,,DM1\nL,DINT,[1..3],,a,b,c,4,0,0,5,MAIN,\nS,STRING,,40,a,b,c,5,1,0,0,,\n"
    "T,SINT,,,a,b,c,6,1,0,0,,\nX,DATE,,,a,b,c,7,1,0,0,,\n";

void require(bool holds) {
  if (!holds) std::abort();
}

// Bytes as they come on one connection, cut into requests as the server does it.
void fuzz_requests(Bytes received) {
  plc_sim::VariableStore store;
  store.declare(plc_sim::read_tag_text("tags", kTags).tags, {}, plc_sim::DirectoryOrder::kFile);
  plc_sim::Controller controller(store);
  plc_sim::Session session;
  while (!received.empty()) {
    plc_sim::FrameEnd end = plc_sim::find_frame_end(received, false);
    if (!end.is_complete) end = plc_sim::find_frame_end(received, true);
    require(end.is_complete && end.bytes > 0 && end.bytes <= received.size());
    const auto behind = received.begin() + static_cast<std::ptrdiff_t>(end.bytes);
    const plc_sim::Answer answer = controller.handle(session, Bytes(received.begin(), behind));
    require(answer.reply.size() >= 14 && answer.reply.size() <= 4096);
    received.erase(received.begin(), behind);
  }
}

void fuzz_capture(const std::string& file) {
  plc_sim::Capture capture = plc_sim::read_capture(file);
  require(!capture.exchanges.empty() || !capture.problem.empty());
  if (capture.exchanges.empty()) return;
  const Bytes request = capture.exchanges.front().request;
  plc_sim::Replay replay(std::move(capture.exchanges));
  plc_sim::Session session;
  require(!replay.handle(session, request).reply.empty());
}

void fuzz_tags(const std::string& text) {
  const plc_sim::TagFile file = plc_sim::read_tag_text("tags", text);
  plc_sim::VariableStore store;
  store.declare(file.tags, {}, plc_sim::DirectoryOrder::kLongestFirst);
  for (const auto& variable : store.variables()) {
    const auto number = variable->tag.program_number;
    const auto program = variable->tag.is_global ? std::nullopt : std::optional<uint8_t>(number);
    require(variable->is_text() || store.resolve(program, variable->wire_name_of(0)).has_value());
  }
}

// A line each for method, path, query, host and origin; the rest is the body.
void fuzz_page(const std::string& text) {
  plc_sim::VariableStore store;
  store.declare(plc_sim::read_tag_text("tags", kTags).tags, {}, plc_sim::DirectoryOrder::kFile);
  const plc_sim::FaultBook faults;
  const plc_sim::Tally tally([](const std::string&) {});
  const plc_sim::WebPage page(store, faults, tally, [](const std::string& line) {
    require(line.rfind("set ", 0) == 0 || line.rfind("fault ", 0) == 0);
    require(line.find('\n') == std::string::npos);
    return "ok\n";
  });
  std::istringstream lines(text);
  plc_sim::WebRequest request;
  request.has_own_header = true;
  std::string host;
  std::string origin;
  for (std::string* part : {&request.method, &request.path, &request.query, &host, &origin}) std::getline(lines, *part);
  std::getline(lines, request.body, '\0');
  request.host = host;
  request.origin = origin;
  const auto refusal = plc_sim::refuse_foreign(request, {"192.0.2.1", 8080});
  require(refusal || (host.find(":8080") != std::string::npos && origin == "http://" + host));
  const plc_sim::WebAnswer answer = page.answer(request);
  require(answer.status == 200 || answer.status == 403 || answer.status == 404 || answer.status == 405);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t length) {
  if (length == 0) return 0;
  const std::string text(bytes + 1, bytes + length);
  switch (bytes[0]) {
    case 'c':
      fuzz_capture(text);
      break;
    case 'p':
      fuzz_page(text);
      break;
    case 't':
      fuzz_tags(text);
      break;
    default:
      fuzz_requests(Bytes(bytes + 1, bytes + length));
      break;
  }
  return 0;
}
