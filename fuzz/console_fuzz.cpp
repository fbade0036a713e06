// The console of plc-sim: lines of commands, the texts of faults, and what faults make of a reply.
#include <algorithm>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>

#include "fuzz_input.h"
#include "judge.h"
#include "spelling.h"
#include "tools/plc_sim/console/console.h"
#include "tools/plc_sim/console/report.h"
#include "tools/plc_sim/controller/ask_log.h"

namespace {

using fuzz::demand;
using plc_sim::Bytes;
using plc_sim::Delivery;
using plc_sim::Fault;
using plc_sim::FaultKind;

constexpr const char* kTags =
    "D,INT,,,a,b,c,0,1,0,0,,DM1\nQ,LINT,[0..3],,a,b,c,1,1,0,0,,DM1\nB,BOOL,[0..3],,a,b,c,2,1,0,0,,MR1\n"
    "L,DINT,[1..3],,a,b,c,4,0,0,5,MAIN,\nS,STRING,,8,a,b,c,5,1,0,0,,\nR,REAL,,,a,b,c,6,1,0,0,,\n"
    "=X\x1B[2J,DATE,,,a,b,c,7,1,0,0,,\n";

constexpr const char* kWords[] = {"set ",
                                  "show ",
                                  "dump ",
                                  "counts ",
                                  "fault ",
                                  "faults",
                                  "report ",
                                  "help",
                                  "quit",
                                  "clear",
                                  "--json",
                                  "text",
                                  "json",
                                  "csv",
                                  "D",
                                  "Q[1]",
                                  "Q",
                                  "MAIN/L[2]",
                                  "S",
                                  "R",
                                  "B[#3]",
                                  " ",
                                  "\n",
                                  "\r",
                                  "delay 5",
                                  "no-reply",
                                  "close",
                                  "reset",
                                  "cut 3",
                                  "close-after 3",
                                  "reset-after 14",
                                  "split 2 5",
                                  "drip 1",
                                  "stale 9",
                                  "trailing 9",
                                  "duplicate",
                                  "oversize 99",
                                  "garbage",
                                  "garbage 7",
                                  "wrong-sequence",
                                  "foreign",
                                  "foreign 2",
                                  "refuse",
                                  "refuse 4",
                                  "status 17",
                                  "short 3",
                                  "slow-accept 9",
                                  "refuse-accept",
                                  "gone",
                                  "gone 5",
                                  " times=3",
                                  " times=always",
                                  " on=read",
                                  " on=directory-start",
                                  " on=any",
                                  " after=2",
                                  " every=2",
                                  "600001",
                                  "0",
                                  "65536",
                                  "1.5",
                                  "true",
                                  "\x1B[2J",
                                  "="};

// Behind these lines nothing is left of what the lines before have set but values.
struct World {
  plc_sim::VariableStore store;
  plc_sim::FaultBook faults;
  plc_sim::Tally tally{[](const std::string&) {}};
  plc_sim::AskLog log{[] { return uint64_t{0}; }};
  World() {
    store.declare(plc_sim::read_tag_text("tags", kTags).tags, {}, plc_sim::DirectoryOrder::kFile);
    const auto element = store.resolve(std::nullopt, "D");
    log.add({plc_sim::Asked::What::kResolved, "D", &*element});
    log.add({plc_sim::Asked::What::kRead, "D", &*element});
    log.add({plc_sim::Asked::What::kWritten, "D", &*element});
    log.add({plc_sim::Asked::What::kRefused, "=evil,\"\nviolation: \x1B[2J", nullptr});
  }
};

size_t bytes_of(const Delivery& delivery) {
  size_t bytes = 0;
  for (const Delivery::Piece& piece : delivery.pieces) bytes += piece.bytes.size();
  return bytes;
}

// How many bytes are sent, for a fault whose count of bytes is its own.
void judge_delivery(const Fault& fault, const Bytes& reply) {
  const Delivery delivery = plc_sim::deliver_with(fault, reply);
  const size_t sent = bytes_of(delivery);
  const size_t first = fault.arguments.empty() ? 0 : fault.arguments[0];
  constexpr size_t kHead = 14;
  switch (fault.kind) {
    case FaultKind::kNoReply:
    case FaultKind::kClose:
    case FaultKind::kReset:
      demand(sent == 0, "nothing is sent");
      break;
    case FaultKind::kCut:
    case FaultKind::kCloseAfter:
    case FaultKind::kResetAfter:
      demand(sent == std::min(first, reply.size()), "the first bytes are sent");
      break;
    case FaultKind::kStale:
    case FaultKind::kTrailing:
      demand(sent == reply.size() + first, "so many bytes more are sent");
      break;
    case FaultKind::kDuplicate:
    case FaultKind::kForeign:
      demand(sent == 2 * reply.size(), "twice as many bytes are sent");
      break;
    case FaultKind::kOversize:
      demand(sent == std::max(first, reply.size()), "the reply is filled up");
      break;
    case FaultKind::kGarbage:
      demand(fault.arguments.empty() || sent == first, "so many bytes are sent");
      break;
    case FaultKind::kRefuse:
      demand(sent == kHead, "a refusal is a head");
      break;
    case FaultKind::kShort:
      demand(sent <= reply.size(), "no more than the reply is sent");
      break;
    default:
      demand(sent == reply.size(), "the whole reply is sent");
      break;
  }
}

void judge_fault(const std::string& text, uint8_t reply_bytes) {
  constexpr unsigned kMost = 4096;
  Fault fault;
  try {
    fault = plc_sim::parse_fault(text);
  } catch (const std::invalid_argument& bad) {
    demand(*bad.what() != '\0', "a refusal has a reason");
    return;
  }
  const std::string said = plc_sim::describe(fault);
  demand(said.rfind(plc_sim::name_of(fault.kind), 0) == 0 && fuzz::is_shown(said), "a fault is described by its name");
  for (const unsigned argument : fault.arguments) {
    if (argument > kMost) return;
  }
  judge_delivery(fault, Bytes(reply_bytes, 0x55));
  plc_sim::FaultBook book;
  book.arm(fault);
  for (int i = 0; i < 4; ++i) book.take(plc_sim::RequestKind::kRead);
  demand(fault.concerns_accept() == (book.count_of(fault.kind) == 0 && fault.concerns_accept()), "faults are counted");
}

void judge_answer(const std::string& line, const std::string& answer) {
  if (answer.empty()) {
    demand(line.find_first_not_of(" \r") == std::string::npos, "a command has an answer");
    return;
  }
  demand(answer.back() == '\n' && fuzz::is_shown(answer), "an answer is shown text");
  const size_t last = answer.rfind('\n', answer.size() - 2);
  const std::string end = answer.substr(last == std::string::npos ? 0 : last + 1);
  demand(end == "ok\n" || end.rfind("error: ", 0) == 0, "an answer ends in ok or error");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t length) {
  constexpr size_t kMostLines = 4;
  static World world;
  world.faults.clear();
  plc_sim::Console console(
      world.store, world.faults, world.tally,
      {[](const Fault& fault) { return world.faults.arm(fault); }, [] { world.faults.clear(); }, [] {},
       [](const std::string& format) { return plc_sim::make_report(world.store, world.log, format); }});
  fuzz::Input input(bytes, length);
  const uint8_t choice = input.byte();
  const std::string text = fuzz::spelled(input.text(), kWords);
  if (choice >= 0x80) {
    judge_fault(text, choice - 0x80);
    return 0;
  }
  plc_sim::report_format_for(text);
  size_t at = 0;
  for (size_t i = 0; i < kMostLines && at < text.size(); ++i) {
    const size_t end = std::min(text.find('\n', at), text.size());
    const std::string line = text.substr(at, end - at);
    judge_answer(line, console.run(line));
    at = end + 1;
  }
  return 0;
}
