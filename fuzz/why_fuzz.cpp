// plc-host why: a name or a number, a tag file, and the traffic of a capture or of the driver's own read; the report
// comes out, for people and for programs.
#include <algorithm>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <string>

#include "client/client_error.h"
#include "client/values/value_type.h"
#include "fuzz_input.h"
#include "judge.h"
#include "memory_files.h"
#include "plc_driver/tags/tag_file.h"
#include "spelling.h"
#include "tag_words.h"
#include "tools/plc_host/client_names.h"
#include "tools/plc_host/exit_codes.h"
#include "tools/plc_host/why/why_capture.h"
#include "tools/plc_host/why/why_findings.h"
#include "tools/plc_host/why/why_lookup.h"
#include "traffic_words.h"

namespace {

using namespace std::string_view_literals;
using fuzz::demand;
using fuzz::Frame;
using plc_host::WhyReport;
using wire_trace::TrafficEvent;

// Bits of an input's first byte.
constexpr uint8_t kById = 1;
constexpr uint8_t kLive = 2;
constexpr uint8_t kWithoutTags = 4;
constexpr uint8_t kOwnTags = 8;
constexpr uint8_t kAsJson = 16;

constexpr size_t kMostEvents = 10;
constexpr const char* kPath = "PLC1_0.csv";
// One that is read when nothing else was spelt: each way to be declared.
constexpr std::string_view kTags =
    "D,INT,,,a,b,c,0,1,0,0,,DM1\nQ,LINT,[0..9],,a,b,c,1,1,0,0,,DM1\nB,BOOL,[0..20],,a,b,c,2,1,0,0,,MR1\n"
    "L,DINT,[1..3],,a,b,c,4,0,0,5,MAIN,\nS,STRING,,40,a,b,c,5,1,0,0,,\nT,DATE,,,a,b,c,6,1,0,0,,\n"
    "M,BOOL,,,a,b,c,7,0,0,9,MAIN2\nG.v,BOOL,,,a,b,c,8,1,0,0,,DM9\nC,SINT,,,a,b,c,9,1,0,0,,\nE,NONE,,,a,b,c,9,1,0,0,,\n"
    "U,INT,[5..9_2..3],,a,b,c,9,1,0,0,,DM1\nN,INT,,\0,a,b,c,9,1,0,0,,DM1\n"
    "W,INT,                                                                                                        "
    "                                                                                                              "
    "                                                  "
    ",,a,b,c,9,1,0,0,,DM1\nX,REAL,,,a,b,c,9,1,0,0,,DM1\nI,INT,,,,,,262144,1,0,0,\n"
    "Y\xE2\x80\xAE,INT,,,a,b,c,9,1,0,0,,DM1\nZ,INT,,,a,b,c,0,1"sv;
constexpr const char* kAsked[] = {
    "D",       "Q",       "Q[3]", "Q[2..4]", "B",    "B[1]",    "MAIN/L",    "L", "S", "MAIN/L[2]",     "T",
    "MAIN2/M", "G.v",     "C",    "E",       "A[1]", "A[1..2]", "I",         "Z", "d", "Y\xE2\x80\xAE", "\x1B[2J",
    "L[9]",    "OTHER/L", "X",    "Q[9..2]", "Nope", "U",       "U[5..6,3]", "N", "W", "\xC3\xA4\x9B"};
// As they travel, or one like them.
constexpr const char16_t* kSent[] = {u"D",        u"Q[#3]",  u"Q[#3]",      u"Q[#2]", u"B[#1]", u"B[#1]", u"L[#1]",
                                     u"L",        u"S",      u"L[#2]",      u"T",     u"M",     u"G.v",   u"C",
                                     u"E",        u"A[#1]",  u"A[#2]",      u"I",     u"Q[#4]", u"d",     u"Y\x202E",
                                     u"\x1B[2J",  u"\xD800", u"Nope\nx: y", u"X",     u"Q",     u"L[#3]", u"U[#5,#2]",
                                     u"U[#5,#3]", u"B",      u"W",          u"\x00E4"};
constexpr const char16_t* kPrograms[] = {u"MAIN", u"MAI", u"MAIN2", u"Main", u"\x1B]0;x\x07", u"", u"OTHER"};
constexpr const char* kLines[] = {"[PLC] guard: controller refused the names, status 0004",
                                  "[PLC] guard: reply to another request",
                                  "recv data --timeout--",
                                  "Index out of range!",
                                  "\x1B[2Jplc-host: ok",
                                  "nobody knows this line"};
constexpr const char* kProblems[] = {"", "3 packets are cut", "the file ends within a packet", "\x1B[2J\xE2\x80\xAE"};

template <typename Word, size_t kCount>
Word word_of(const Word (&words)[kCount], uint8_t choice) {
  return words[choice % kCount];
}

void append_name(Frame& body, std::u16string_view name) {
  const std::u16string units = std::u16string(1, static_cast<char16_t>(name.size())).append(name);
  for (const char16_t unit : units) {
    body.push_back(static_cast<uint8_t>(unit >> 8U));
    body.push_back(static_cast<uint8_t>(unit));
  }
}

// Names of the tag file, of a global scope or of a program.
Frame names_request(uint8_t sequence, uint8_t names, uint8_t program, uint8_t first) {
  Frame body = {0, 1, 0, 0, 0, names};
  if (program != 0) body = {0, 1, 1, 1, 0, program, 0, 0, 0, 0, 0, names};
  for (uint8_t i = 0; i < names; ++i) append_name(body, word_of(kSent, static_cast<uint8_t>(first + i)));
  return fuzz::frame_of(sequence, 0x0C, 0x28, body);
}

Frame names_request(fuzz::Input& input) {
  const uint8_t how = input.byte();
  const uint8_t first = input.byte();
  return names_request(input.byte() % 4, 1 + how % 16 % 10, how >> 4U, first);
}

Frame directory_reply(fuzz::Input& input) {
  const uint8_t how = input.byte();
  Frame body = {0, 0, static_cast<uint8_t>(how % 3), 0};
  for (uint8_t i = 0; i < how % 3; ++i) {
    const std::u16string name = word_of(kPrograms, static_cast<uint8_t>(how / 3 + i));
    body.insert(body.end(), {0, static_cast<uint8_t>(2 * name.size() + 2), static_cast<uint8_t>(i == 0 ? 5 : 9), 0});
    for (const char16_t unit : name) {
      body.insert(body.end(), {static_cast<uint8_t>(unit), static_cast<uint8_t>(unit >> 8U)});
    }
  }
  return fuzz::frame_of(how % 2, 0x0C, 0x25, body);
}

// A value of up to 63 bytes for what was asked last.
Frame values_reply(fuzz::Input& input) {
  const uint8_t how = input.byte();
  Frame body(2 + how % 64, static_cast<uint8_t>(0x41 + how / 64));
  body[0] = body[1] = 0;
  return fuzz::frame_of(input.byte() % 4, 0x1E, 0x09, body);
}

// Names, their handles, the request for their values, and the values or most of them.
void add_transfer(fuzz::Input& input, uint8_t asked, wire_trace::Connection& connection, int64_t& now) {
  constexpr uint8_t kUnits[] = {1, 2, 4, 20};
  const uint8_t how = input.byte();
  const uint8_t names = 1 + how % 3;
  const uint8_t units = kUnits[how / 3 % 4];
  const uint8_t cut = how >= 0xC0 ? how % 8 : uint8_t{0};
  const uint8_t place = input.byte();
  const auto first = static_cast<uint8_t>(asked + input.byte());
  Frame handles = {0, 0, 1, 0, 1};
  Frame wanted = {0, 0, names, 0, 0, 0};
  for (uint8_t i = 0; i < names; ++i) {
    handles.insert(handles.end(), {0, 0, 0, 0, 6, 0, 0, 0, static_cast<uint8_t>(place + i)});
    handles.resize(handles.size() + 14);
    handles.push_back(place / 8);
    wanted.insert(wanted.end(), {0, 6, 0, units, 0, 0, 0, static_cast<uint8_t>(place + i)});
  }
  Frame values(static_cast<size_t>(2 + 2 * units * names - std::min<int>(cut, 2 * units * names)), place);
  values[0] = values[1] = 0;
  bool from_host = true;
  for (const Frame& frame :
       {names_request(1, names, (how & 0x30U) == 0x30U ? 5 : 0, first), fuzz::frame_of(1, 0x0C, 0x28, handles),
        fuzz::frame_of(2, 0x1E, 0x09, wanted), fuzz::frame_of(2, 0x1E, 0x09, values)}) {
    TrafficEvent event;
    event.time_ns = now += 1000;
    event.from_host = from_host;
    event.bytes = frame;
    connection.events.push_back(std::move(event));
    from_host = !from_host;
  }
}

Frame bytes_of(fuzz::Input& input, bool from_host, unsigned kind) {
  if (kind == 4) {
    Frame any(input.byte());
    any.resize(input.copy_bytes(any.data(), any.size()));
    return any;
  }
  if (kind >= 2) return from_host ? fuzz::request_of(input) : fuzz::reply_of(input);
  if (from_host) return names_request(input);
  return kind == 0 ? values_reply(input) : directory_reply(input);
}

wire_trace::CapturedRecording captured_of(fuzz::Input& input, uint8_t asked) {
  const uint8_t choice = input.byte();
  wire_trace::CapturedRecording captured;
  captured.problem = word_of(kProblems, choice / 4);
  captured.recording.connections.resize(choice % 3);
  int64_t now = 0;
  for (size_t i = 0; i < kMostEvents && choice % 3 != 0 && !input.empty(); ++i) {
    const uint8_t what = input.byte();
    wire_trace::Connection& connection = captured.recording.connections[what % (choice % 3)];
    now += (what >> 6U) * int64_t{700000};
    TrafficEvent event;
    event.time_ns = now;
    event.from_host = (what & 2U) != 0;
    const unsigned kind = what >> 2U & 7U;
    if (kind == 3) {
      add_transfer(input, asked, connection, now);
      continue;
    }
    if (kind == 7) event.kind = (what & 0x20U) != 0 ? TrafficEvent::Kind::kReset : TrafficEvent::Kind::kFinished;
    if (kind < 7) event.bytes = bytes_of(input, event.from_host, kind % 5);
    if (kind >= 5 && kind < 7) event.bytes = fuzz::damaged(input, event.bytes);
    connection.events.push_back(std::move(event));
  }
  return captured;
}

template <typename Write>
std::string written(const Write& write, const WhyReport& report) {
  char* text = nullptr;
  size_t length = 0;
  FILE* file = open_memstream(&text, &length);
  if (file == nullptr) abort();
  write(file, report);
  if (std::fclose(file) != 0) abort();
  std::string copy(text, length);
  std::free(text);
  return copy;
}

size_t count_of(const std::string& text, const char* wanted) {
  size_t count = 0;
  for (size_t at = text.find(wanted); at != std::string::npos; at = text.find(wanted, at + 1)) ++count;
  return count;
}

// Whether values came for something on the road.
bool has_values(const WhyReport& report) {
  for (const size_t index : report.road) {
    const wire_trace::Exchange& exchange = report.exchanges[index];
    if (exchange.request.kind == plc_sim::RequestKind::kRead && exchange.is_answered()) return true;
  }
  return false;
}

void judge_text(const WhyReport& report) {
  const std::string text = written(plc_host::write_why_text, report);
  demand(fuzz::is_shown(text), "the report is shown text");
  demand(count_of(text, "\n     Try: ") + count_of(text, "\n    Try: ") == report.findings.size(),
         "each finding has a line of advice, and nothing else has one");
  demand(text.find("\nvalue ") == std::string::npos || !report.value.empty(), "what has no value shows none");
  const bool is_doubted = text.find("(not to be trusted)\n") != std::string::npos;
  demand(report.value.empty() || !report.has_fault() || is_doubted, "a value behind a fault is not to be trusted");
}

bool has_null(const nlohmann::json& value) {
  return value.is_null() || (value.is_array() && std::any_of(value.begin(), value.end(), has_null));
}

void judge_json(const WhyReport& report) {
  const std::string text = written(plc_host::write_why_json, report);
  demand(fuzz::is_shown(text) && count_of(text, "\n") == 1, "the JSON is a line of shown text");
  const auto json = nlohmann::json::parse(text, nullptr, false);
  demand(!json.is_discarded(), "the JSON is JSON");
  demand(json["wrong"].size() + json["worth_knowing"].size() == report.findings.size(), "each finding is in one list");
  demand(json["wrong"].empty() == !report.has_fault(), "faults are what went wrong");
  const bool is_read = !report.value.empty() || report.by_type;
  const bool is_unsaid = json.contains("value_reason");
  demand(is_read || json["value"].is_null(), "a value is one that was read");
  demand(is_unsaid == (is_read && has_null(json["value"])), "what JSON cannot say has a reason, and nothing else has");
  demand(json["exchanges"].size() == report.road.size(), "the road is told");
}

void follow_captured(const plc_host::HostOptions& options, uint8_t asked, fuzz::Input& input, WhyReport& report) {
  try {
    plc_host::take_capture(options, captured_of(input, asked), report);
  } catch (const plc_host::HostError& error) {
    demand(error.code() == plc_host::kExitUsage, "a capture with nothing in it is a mistake of the caller's");
    return;
  }
  const int code = plc_host::explain_capture(options, report);
  demand(code == plc_host::kExitOk || code == plc_host::kExitTagFailed, "known ends");
  demand((code == plc_host::kExitOk) == (report.times_asked > 0 && !report.has_fault()), "success is what was seen");
  demand(report.times_wrong <= report.times_asked, "as often wrong as asked for at most");
  demand(report.value.empty() || has_values(report), "a value is one that came");
}

// As a read through the driver leaves the report.
void follow_read(const plc_host::HostOptions& options, uint8_t asked, fuzz::Input& input, WhyReport& report) {
  report.from = "192.0.2.1:8500";
  const uint8_t choice = input.byte();
  report.is_guarded = (choice & 1U) != 0;
  report.build = report.is_guarded ? "guarded" : "contract";
  const auto reference = plc_host::look_up(options, report);
  if (options.by_id || (reference && !report.calls.empty())) {
    report.code = (choice & 2U) != 0 ? choice >> 5U : uint32_t{PLC_OK};
    if ((choice & 4U) != 0) report.driver_lines.emplace_back(word_of(kLines, choice >> 4U));
    if (report.code == std::optional<uint32_t>(PLC_OK) && reference) {
      const bool has_elements = reference->tag->entry.bit_width != 0;
      const plc_host::TagValue value{has_elements ? std::vector<uint64_t>{choice} : std::vector<uint64_t>(),
                                     has_elements ? "" : "\x1B[2J"};
      report.set_value({reference->tag->entry, value, {}});
    }
    report.exchanges = wire_trace::find_exchanges(captured_of(input, asked).recording);
    for (size_t i = 0; i < report.exchanges.size(); ++i) report.road.push_back(i);
  }
  plc_host::find_recording_bound((choice & 8U) != 0, report);
  plc_host::find_road_faults(options.by_id, report);
  demand(report.has_fault() || report.code == std::optional<uint32_t>(PLC_OK), "a read that failed has a fault");
}

struct TagFile {
  plc_host::TagList list;
  std::unique_ptr<plc_host::TagSource> source;  // null for a file that the driver rejects
};

TagFile read_tags(const std::string& text) {
  fuzz::set_tag_file(text);
  plc_host::DriverLibrary library;
  library.build_tagtable = build_tagtable;
  try {
    return {plc_host::load_tag_list(library, kPath), std::make_unique<plc_host::TagSource>(kPath, text)};
  } catch (const plc_host::ClientError&) {
    return {};
  }
}

void judge(const plc_host::HostOptions& options, uint8_t choice, uint8_t asked, fuzz::Input& input, WhyReport& report) {
  (choice & kLive) != 0 ? follow_read(options, asked, input, report) : follow_captured(options, asked, input, report);
  (choice & kAsJson) != 0 ? judge_json(report) : judge_text(report);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  if (freopen("/dev/null", "w", stdout) == nullptr) abort();
  return 0;
}

// How it is asked, what for, the tag file up to a zero byte when it is not the usual one, then the traffic.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t length) {
  fuzz::Input input(bytes, length);
  const uint8_t choice = input.byte();
  plc_host::HostOptions options;
  options.by_id = (choice & kById) != 0;
  const uint8_t asked = input.byte();
  if (options.by_id) {
    options.register_id = asked == 0xFF ? 262144 : asked == 0xFE ? 65536 : asked % 20;
    options.offset = input.word();
    options.count = 1 + input.byte();
  } else {
    options.names = {word_of(kAsked, asked)};
  }
  WhyReport report;
  report.asked = options.by_id ? "number " + std::to_string(options.register_id) : options.names.front();
  options.capture = "field.pcap";
  const bool has_tags = (choice & (kById | kLive)) != 0 || (choice & kWithoutTags) == 0;
  if (!has_tags) {
    judge(options, choice, asked, input, report);
    return 0;
  }
  // The usual one is read once.
  static TagFile usual = read_tags(std::string(kTags));
  TagFile own;
  if ((choice & kOwnTags) != 0) {
    std::string text;
    for (uint8_t byte = input.byte(); byte != 0; byte = input.byte()) text += static_cast<char>(byte);
    own = read_tags(fuzz::spelled(text, fuzz::kTagWords));
    if (own.source == nullptr) return 0;
  }
  TagFile& tags = (choice & kOwnTags) != 0 ? own : usual;
  options.tag_file = kPath;
  report.tags = std::move(tags.list);
  report.source = std::move(tags.source);
  judge(options, choice, asked, input, report);
  tags = {std::move(report.tags), std::move(report.source)};
  return 0;
}
