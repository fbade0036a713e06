// A host that talks with plc-sim's controller: names, reads and writes that rest on each other, most of them right,
// some of them damaged on the way. What the controller answers is held against what it was given.
#include <algorithm>
#include <optional>
#include <string>

#include "base/shown_text.h"
#include "fuzz_input.h"
#include "judge.h"
#include "tools/plc_sim/controller/controller.h"
#include "tools/plc_sim/controller/judge.h"
#include "tools/plc_sim/server/replay.h"
#include "traffic_words.h"
#include "wire/big_endian.h"
#include "wire/framing.h"
#include "wire/names.h"

namespace {

using fuzz::demand;
using fuzz::Frame;
using plc_sim::Answer;
using plc_sim::Controller;
using plc_sim::Handle;
using plc_sim::Session;

constexpr const char* kTags =
    "D,INT,,,a,b,c,0,1,0,0,,DM1\nQ,LINT,[0..3],,a,b,c,1,1,0,0,,DM1\nB,BOOL,[0..20],,a,b,c,2,1,0,0,,MR1\n"
    "a.b,BOOL,,,a,b,c,3,1,0,0,,DM1\nL,DINT,[1..3],,a,b,c,4,0,0,5,MAIN,\nS,STRING,,600,a,b,c,5,1,0,0,,\n"
    "T,SINT,,,a,b,c,6,1,0,0,,\nX,DATE,,,a,b,c,7,1,0,0,,\nE,BOOL,[0..20],,a,b,c,8,1,0,0,,EM1\n"
    "M.x,BOOL,[1..9],,a,b,c,9,1,0,0,,MR1\nR,BOOL,,,a,b,c,10,1,0,0,,LR1\nA[1].y,BOOL,,,a,b,c,11,0,0,5,MAIN,LR1\n";

struct Name {
  const char* text;
  bool is_local;
};

constexpr Name kNames[] = {
    {"D", false},     {"Q[#0]", false},    {"Q[#3]", false},  {"B[#0]", false},   {"B[#20]", false}, {"a.b", false},
    {"L[#1]", true},  {"L[#3]", true},     {"S[#0]", false},  {"S[#3]", false},   {"T", false},      {"X", false},
    {"E[#2]", false}, {"M.x[#1]", false},  {"R", false},      {"A[#1].y", true},  {"Nobody", false}, {"L[#1]", false},
    {"Q[#9]", false}, {"S[#2000]", false}, {"B[#-5]", false}, {"L[#70000]", true}};

void append_wire_name(Frame& body, const std::string& name) {
  const auto units = plc_sim::utf16_from_utf8(name);
  body.insert(body.end(), {0, static_cast<uint8_t>(units->size())});
  for (const char16_t unit : *units)
    body.insert(body.end(), {static_cast<uint8_t>(unit >> 8U), static_cast<uint8_t>(unit)});
}

// One block of up to fifteen names of one scope.
Frame names_request(uint8_t sequence, fuzz::Input& input) {
  const uint8_t choice = input.byte();
  const uint8_t count = choice % 16;
  const Name& first = kNames[input.byte() % std::size(kNames)];
  Frame body = {0, 1};
  if (first.is_local) {
    body.insert(body.end(), {1, 1, 0, static_cast<uint8_t>((choice & 0x20U) != 0 ? 9 : 5), 0, 0, 0, 0, 0, count});
  } else {
    body.insert(body.end(), {0, 0, 0, count});
  }
  for (uint8_t i = 0; i < count; ++i) {
    append_wire_name(body,
                     i == 0 || (choice & 0x40U) != 0 ? first.text : kNames[input.byte() % std::size(kNames)].text);
  }
  if ((choice & 0x80U) != 0 && count > 0) body.resize(6);  // announced, and not there
  return fuzz::frame_of(sequence, 0x0C, 0x28, body);
}

void append_address(Frame& body, uint32_t address, unsigned bytes) {
  for (unsigned i = bytes; i-- > 0;) body.push_back(static_cast<uint8_t>(address >> (8 * i)));
}

uint8_t size_of(const plc_sim::ResolvedName& name, uint8_t choice) {
  if ((choice & 0x40U) != 0) return choice;
  return static_cast<uint8_t>(name.element ? std::min(name.element->variable->units, 255U) : 1);
}

Frame read_request(uint8_t sequence, const Session& session, uint8_t choice) {
  const size_t count = std::max<size_t>(session.names.size(), 1) + (choice % 16 == 1 ? 1 : 0);
  Frame body = {0, 0, static_cast<uint8_t>(count), 0, 0, 0};
  for (size_t i = 0; i < count; ++i) {
    const bool is_known = i < session.names.size();
    const Handle handle = is_known ? session.names[i].handle : Handle{};
    body.insert(body.end(), {0, handle.area, 0, is_known ? size_of(session.names[i], choice) : uint8_t{1}});
    const bool is_word = choice % 16 == 2;  // of a bit: the address of its word
    append_address(body, is_word ? handle.address & ~0x0FU : handle.address, 4);
  }
  return fuzz::frame_of(sequence, 0x1E, 0x09, body);
}

Frame write_request(uint8_t sequence, const Session& session, fuzz::Input& input) {
  const uint8_t choice = input.byte();
  const Handle handle = session.names.empty() ? Handle{} : session.names.front().handle;
  unsigned units = 0;
  for (const auto& name : session.names) units += size_of(name, 0);
  if ((choice & 0x0FU) == 1) units = choice;
  if ((choice & 0x0FU) == 2) units = input.word() % 600;
  Frame body = {0, handle.area, 0, 0, 0, static_cast<uint8_t>(units)};
  append_address(body, handle.address, 4);
  for (unsigned i = 0; i < 2 * units; ++i) body.push_back(input.byte());
  if ((choice & 0x0FU) == 3) body.resize(10);
  Frame frame = fuzz::frame_of(sequence, 0x1E, 0x01, body);
  // Texts beyond a byte give the low byte of their length, words without a value the length of one with it.
  if (frame.size() > 265) fuzz::set_length(frame, (frame.size() - 10) & 0xFFU);
  if ((choice & 0x0FU) == 3) fuzz::set_length(frame, 14);
  return frame;
}

Frame bit_request(uint8_t sequence, const Session& session, uint8_t choice) {
  const Handle handle = session.names.empty() ? Handle{} : session.names.front().handle;
  if ((choice & 4U) != 0) {
    Frame body = {0, 1, handle.area};
    append_address(body, handle.address, 4);
    if ((choice & 8U) == 0) {
      body.insert(body.end(), {static_cast<uint8_t>(choice & 1U), 0, 0});
      body[body.size() - 2] = (choice & 1U) != 0 ? 0x00 : 0xFF;
      body[body.size() - 1] = (choice & 1U) != 0 ? static_cast<uint8_t>(1U << (choice >> 5U)) : 0xFE;
    }
    Frame frame = fuzz::frame_of(sequence, 0x1E, 0x03, body);
    fuzz::set_length(frame, 12);
    return frame;
  }
  Frame body = {1, handle.area};
  append_address(body, handle.address, 2);
  Frame frame = fuzz::frame_of(sequence, (choice & 1U) != 0 ? 0x32 : 0x33, 0x00, body);
  if ((choice & 8U) != 0) frame.erase(frame.begin() + 10);  // neither 0 nor 1 was to be written
  fuzz::set_length(frame, 6);
  return frame;
}

Frame next_request(uint8_t sequence, const Session& session, fuzz::Input& input) {
  switch (input.byte() % 8) {
    case 0:
    case 1:
      return names_request(sequence, input);
    case 2:
    case 3:
      return read_request(sequence, session, input.byte());
    case 4:
      return write_request(sequence, session, input);
    case 5:
      return bit_request(sequence, session, input.byte());
    case 6:
      return fuzz::damaged(input, names_request(sequence, input));
    default:
      return fuzz::damaged(input, (input.byte() & 1U) != 0 ? read_request(sequence, session, 0)
                                                           : write_request(sequence, session, input));
  }
}

void judge_answer(const Frame& request, const Answer& answer) {
  demand(answer.reply.size() >= 14 && answer.reply.size() <= 4096, "a reply is a frame");
  const plc_sim::ByteView reply(answer.reply);
  demand(reply.u32(0) == answer.reply.size() - 10 && reply.u32(4) == ~reply.u32(0), "a reply tells its length");
  demand(request.size() < 10 || reply.u16(8) == plc_sim::ByteView(request).u16(8), "a reply has the request's number");
  for (const auto* list : {&answer.findings.violations, &answer.findings.excused, &answer.findings.refused,
                           &answer.findings.outside, &answer.findings.notes}) {
    for (const std::string& text : *list) demand(plc_base::shown_line(text) == text, "a finding is one shown line");
  }
}

plc_sim::VariableStore make_store() {
  plc_sim::VariableStore store;
  store.declare(plc_sim::read_tag_text("tags", kTags).tags, {{"MAIN", 5}}, plc_sim::DirectoryOrder::kFile);
  return store;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t length) {
  constexpr size_t kMostRequests = 8;
  static plc_sim::VariableStore store = make_store();
  Controller controller(store);
  size_t told = 0;
  controller.set_observer([&told](const plc_sim::Asked&) { ++told; });
  fuzz::Input input(bytes, length);
  const uint8_t choice = input.byte();
  Session session;
  uint8_t sequence = 0;
  if ((choice & 1U) == 0) {
    for (const uint8_t command : {uint8_t{0x2C}, uint8_t{0x25}}) {
      const Frame request = fuzz::frame_of(sequence++, 0x0C, command, {0, 0, 0, 0});
      judge_answer(request, controller.handle(session, request));
    }
  }
  std::vector<plc_sim::Exchange> captured;
  for (size_t i = 0; i < kMostRequests && !input.empty(); ++i) {
    session.damage = static_cast<plc_sim::ReplyDamage>((choice >> 2U) % 3);
    if ((choice & 0xF0U) == 0x50U && i == 2) session.refusal = 0x13;
    const Frame request = next_request(sequence++, session, input);
    if (request.empty()) continue;
    const Answer answer = controller.handle(session, request);
    judge_answer(request, answer);
    captured.push_back({request, answer.reply});
  }
  if ((choice & 0xC0U) == 0xC0U && !captured.empty()) {
    const Frame request = captured.back().request;
    plc_sim::Replay replay(std::move(captured));
    Session again;
    demand(!replay.handle(again, request).reply.empty(), "what was captured is answered");
    demand(!replay.handle(again, fuzz::damaged(input, request)).reply.empty(), "what was not captured is answered");
  }
  return 0;
}
