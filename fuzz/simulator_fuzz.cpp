// Fuzz target of everything that plc-sim reads: requests with faults on their replies, captures and their replay, tag
// files, lines of the console and what visitors of the page ask. The first byte says which.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <sstream>
#include <string>

#include "base/shown_text.h"
#include "fuzz_input.h"
#include "tools/plc_sim/console/console.h"
#include "tools/plc_sim/console/report.h"
#include "tools/plc_sim/controller/ask_log.h"
#include "tools/plc_sim/controller/controller.h"
#include "tools/plc_sim/page/visitor_check.h"
#include "tools/plc_sim/page/web_page.h"
#include "tools/plc_sim/server/replay.h"
#include "tools/plc_sim/variables/values.h"
#include "wire/captures/pcap_reader.h"
#include "wire/framing.h"

namespace {

using plc_sim::Bytes;

constexpr const char* kTags =
    "D,INT,,,a,b,c,0,1,0,0,,DM1\nQ,LINT,[0..9],,a,b,c,1,1,0,0,,DM1\nB,BOOL,[0..20],,a,b,c,2,1,0,0,,MR1\n"
    "a.b,BOOL,,,a,b,c,3,1,0,0,,DM1\nL,DINT,[1..3],,a,b,c,4,0,0,5,MAIN,\nS,STRING,,40,a,b,c,5,1,0,0,,\n"
    "T,SINT,,,a,b,c,6,1,0,0,,\nX,DATE,,,a,b,c,7,1,0,0,,\nR,REAL,,,a,b,c,8,1,0,0,,\nF,LREAL,,,a,b,c,8,1,0,0,,\n"
    "W,WORD,,,a,b,c,9,1,0,0,,\n";

void require(bool holds) {
  if (!holds) std::abort();
}

bool is_shown(const std::string& text) { return plc_base::shown_lines(text) == text; }

// One line, whatever the names in it.
void require_shown(const plc_sim::Findings& findings) {
  for (const auto* list :
       {&findings.violations, &findings.excused, &findings.refused, &findings.outside, &findings.notes}) {
    for (const std::string& text : *list) require(plc_base::shown_line(text) == text);
  }
}

// A fault as the console arms it, with arguments from the input; nothing for the ones that concern no reply.
std::optional<plc_sim::Fault> fault_from(fuzz::Input& input) {
  const auto& known = plc_sim::known_faults();
  plc_sim::Fault fault;
  const plc_sim::FaultInfo& info = known[input.byte() % known.size()];
  fault.kind = info.kind;
  const size_t arguments = info.min_arguments + input.byte() % (info.max_arguments - info.min_arguments + 1);
  for (size_t i = 0; i < arguments; ++i) fault.arguments.push_back(input.byte() < 16 ? input.word() : input.byte());
  return fault.concerns_accept() ? std::nullopt : std::optional<plc_sim::Fault>(fault);
}

void deliver(const std::optional<plc_sim::Fault>& fault, plc_sim::Answer answer, plc_sim::Session& session) {
  require_shown(answer.findings);
  const size_t bytes = answer.reply.size();
  const plc_sim::Delivery delivery =
      fault ? plc_sim::deliver_with(*fault, std::move(answer.reply)) : plc_sim::deliver_whole(std::move(answer.reply));
  size_t sent = 0;
  for (const plc_sim::Delivery::Piece& piece : delivery.pieces) sent += piece.bytes.size();
  require(sent <= 2 * bytes + 65536);
  session.damage = delivery.damage;
}

// Bytes as they come on one connection, cut into requests as the server does it; what answers them may refuse.
template <typename Handle>
void fuzz_connection(Bytes received, const std::optional<plc_sim::Fault>& fault, size_t least_reply, Handle handle) {
  plc_sim::Session session;
  while (!received.empty()) {
    plc_sim::FrameEnd end = plc_sim::find_frame_end(received, false);
    if (!end.is_complete) end = plc_sim::find_frame_end(received, true);
    require(end.is_complete && end.bytes > 0 && end.bytes <= received.size());
    const auto behind = received.begin() + static_cast<std::ptrdiff_t>(end.bytes);
    if (fault && fault->kind == plc_sim::FaultKind::kRefuse) session.refusal = plc_sim::refusal_of(*fault);
    plc_sim::Answer answer = handle(session, Bytes(received.begin(), behind));
    session.refusal.reset();
    require(answer.reply.size() >= least_reply && answer.reply.size() <= 16384);
    deliver(fault, std::move(answer), session);
    received.erase(received.begin(), behind);
  }
}

void fuzz_requests(fuzz::Input input, bool has_fault) {
  plc_sim::VariableStore store;
  store.declare(plc_sim::read_tag_text("tags", kTags).tags, {}, plc_sim::DirectoryOrder::kFile);
  plc_sim::Controller controller(store);
  plc_sim::AskLog log([] { return uint64_t{0}; });
  controller.set_observer([&log](const plc_sim::Asked& asked) { log.add(asked); });
  const auto fault = has_fault ? fault_from(input) : std::nullopt;
  const std::string bytes = input.text();
  fuzz_connection(Bytes(bytes.begin(), bytes.end()), fault, 14,
                  [&](plc_sim::Session& session, const Bytes& frame) { return controller.handle(session, frame); });
  for (const char* format : {"text", "json", "csv"}) require(is_shown(plc_sim::make_report(store, log, format)));
}

void fuzz_capture(const std::string& file) {
  plc_sim::Capture capture = plc_sim::read_capture(file);
  require(!capture.exchanges.empty() || !capture.problem.empty());
  require(plc_base::shown_line(capture.problem) == capture.problem || capture.exchanges.empty());
  if (capture.exchanges.empty()) return;
  const Bytes request = capture.exchanges.front().request;
  plc_sim::Replay replay(std::move(capture.exchanges));
  plc_sim::Session session;
  require(!replay.handle(session, request).reply.empty());
}

// Recorded exchanges of any bytes, a fault, and a host that sends the recorded requests again, or others.
void fuzz_replay(fuzz::Input input) {
  const auto fault = fault_from(input);
  std::vector<plc_sim::Exchange> recorded;
  Bytes sent;
  for (size_t count = input.byte() % 8; count > 0; --count) {
    plc_sim::Exchange exchange;
    exchange.request.resize(input.byte());
    exchange.request.resize(input.copy_bytes(exchange.request.data(), exchange.request.size()));
    exchange.reply.resize(input.byte());
    exchange.reply.resize(input.copy_bytes(exchange.reply.data(), exchange.reply.size()));
    sent.insert(sent.end(), exchange.request.begin(), exchange.request.end());
    recorded.push_back(std::move(exchange));
  }
  const std::string others = input.text();
  sent.insert(sent.end(), others.begin(), others.end());
  std::vector<Bytes> requests;
  for (const plc_sim::Exchange& exchange : recorded) requests.push_back(exchange.request);
  plc_sim::Replay replay(std::move(recorded));
  const auto handle = [&](plc_sim::Session& session, const Bytes& frame) { return replay.handle(session, frame); };
  // Each alone, as a host sends it that waits, then all at once.
  for (const Bytes& request : requests) fuzz_connection(request, fault, 1, handle);
  fuzz_connection(sent, fault, 1, handle);
}

// Requests of every kind meet the armed faults until there is none, or only such as never end.
void take_all(plc_sim::FaultBook& faults) {
  constexpr int kMostRounds = 16;
  for (int round = 0; round < kMostRounds; ++round) {
    for (const auto kind :
         {plc_sim::RequestKind::kRead, plc_sim::RequestKind::kWrite, plc_sim::RequestKind::kResolve}) {
      const size_t armed = faults.armed().size();
      const std::optional<plc_sim::Fault> due = faults.take(kind);
      require(!due || (!due->concerns_accept() && (!due->on || *due->on == kind)));
      require(faults.armed().size() == armed || (due && due->times == 1 && faults.armed().size() + 1 == armed));
    }
  }
}

// Lines as people and the page give them.
void fuzz_console(const std::string& text) {
  plc_sim::VariableStore store;
  store.fill_new_elements_with_sentinels(true);
  store.declare(plc_sim::read_tag_text("tags", kTags).tags, {}, plc_sim::DirectoryOrder::kFile);
  plc_sim::FaultBook faults;
  const plc_sim::Tally tally([](const std::string&) {});
  const plc_sim::AskLog log([] { return uint64_t{0}; });
  plc_sim::Console::Hooks hooks;
  hooks.arm = [&](const plc_sim::Fault& fault) { return faults.arm(fault); };
  hooks.clear_faults = [&] { faults.clear(); };
  hooks.quit = [] {};
  hooks.report = [&](const std::string& format) { return plc_sim::make_report(store, log, format); };
  plc_sim::Console console(store, faults, tally, hooks);
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    const std::string answer = console.run(line);
    require(is_shown(answer));
    if (answer.empty()) continue;
    const std::string lines_without_end = answer.substr(0, answer.size() - 1);
    const std::string last = lines_without_end.substr(lines_without_end.rfind('\n') + 1);  // npos + 1 is 0
    require(last == "ok" || last.rfind("error: ", 0) == 0);
  }
  for (const char* name : {"D", "Q[1]", "B[3]", "S", "T", "X", "R", "F", "W", "L[1]"}) {
    const auto element = store.find_typed(name);
    if (element) plc_sim::animate_value(store.memory(), *element, text.size());
  }
  require(is_shown(console.run("show")));
  take_all(faults);
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

// A line each for method, path, query, host, origin and what the browser says of the site; the rest is the body.
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
  std::string site;
  for (std::string* part : {&request.method, &request.path, &request.query, &host, &origin, &site}) {
    std::getline(lines, *part);
  }
  if (!site.empty()) request.fetch_site = site;
  std::getline(lines, request.body, '\0');
  request.host = host;
  request.origin = origin;
  const auto refusal = plc_sim::refuse_foreign(request, {"192.0.2.1", 8080});
  require(refusal || (host.find(":8080") != std::string::npos && origin == "http://" + host));
  const plc_sim::WebAnswer answer = page.answer(request);
  const auto known = {plc_sim::kHttpOk, plc_sim::kHttpBadRequest, plc_sim::kHttpForbidden, plc_sim::kHttpNotFound,
                      plc_sim::kHttpWrongMethod};
  require(std::count(known.begin(), known.end(), answer.status) == 1);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t length) {
  if (length == 0) return 0;
  const std::string text(bytes + 1, bytes + length);
  switch (bytes[0]) {
    case 'c':
      fuzz_capture(text);
      break;
    case 'f':
      fuzz_requests({bytes + 1, length - 1}, true);
      break;
    case 'l':
      fuzz_console(text);
      break;
    case 'p':
      fuzz_page(text);
      break;
    case 't':
      fuzz_tags(text);
      break;
    case 'x':
      fuzz_replay({bytes + 1, length - 1});
      break;
    default:
      fuzz_requests({bytes + 1, length - 1}, false);
      break;
  }
  return 0;
}
