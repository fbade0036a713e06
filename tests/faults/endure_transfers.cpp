// The host of endure_transfers.h.
#include "faults/endure_transfers.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <array>

namespace plc_test {
namespace {

constexpr uint32_t kConstantId = 0;  // never written
constexpr uint16_t kConstantValue = 4660;

// By id: what the file says, the bits of an element (0: not compared), its elements, whether a batch may hold it, and
// the bytes that may be written into it.
enum class Fill { kAny, kText, kBits };
struct Variable {
  const char* fields;
  uint32_t bits;
  uint32_t elements;
  bool in_batch;
  Fill fill;
};
constexpr Variable kVariables[] = {
    {"Constant,INT,,,a,b,c", 16, 1, true, Fill::kAny},
    {"Word,INT,,,a,b,c", 16, 1, true, Fill::kAny},
    {"Double,DINT,,,a,b,c", 32, 1, true, Fill::kAny},
    {"Quad,LINT,,,a,b,c", 64, 2, false, Fill::kAny},
    {"Text,STRING,,20,a,b,c", 0, 5, false, Fill::kText},
    {"Table,INT,[0..99],,a,b,c", 16, 100, true, Fill::kAny},
    {"Grid,DINT,[0..3_0..4],,a,b,c", 32, 20, true, Fill::kAny},
    {"Cube,REAL,[0..1_0..2_0..3],,a,b,c", 32, 24, true, Fill::kAny},
    {"Bits,BOOL,[0..15],,a,b,c", 0, 16, true, Fill::kBits},
    {"Bit,BOOL,,,a,b,c", 0, 1, true, Fill::kBits},
    {"Part.Bit,BOOL,,,a,b,c", 0, 1, true, Fill::kBits},
    {"Quads,LREAL,[0..9],,a,b,c", 64, 20, false, Fill::kAny},
};
constexpr uint32_t kVariableCount = sizeof kVariables / sizeof kVariables[0];
constexpr uint32_t kDataBytes = 4096;  // a text may be as long as a reply
constexpr uint32_t kWrittenBytes = 256;

constexpr uint32_t kSlowEvery = 50000;        // transfers between faults that cost a time-out
constexpr uint32_t kSlowAcceptEvery = 45000;  // ... between full backlogs
constexpr uint32_t kGoneEvery = 5000;         // ... between controllers that are gone for a while

// A controller that takes its time, as real ones do: a host that has fallen a reply behind does not catch up by chance.
constexpr const char* kTakeTime = "fault delay 1 times=always";
constexpr uint32_t kTakesTimeOnceIn = 100;

std::string tags() {
  std::string text;
  for (uint32_t id = 0; id < kVariableCount; ++id) {
    text += std::string(kVariables[id].fields) + "," + std::to_string(id) + ",1,0,0,,DM\n";
  }
  return text;
}

uint32_t little_endian(const uint8_t* bytes, uint32_t count) {
  uint32_t value = 0;
  for (uint32_t i = count; i > 0; --i) {
    value = value << 8U | bytes[i - 1];
  }
  return value;
}

bool is_compared(uint32_t id) { return kVariables[id].bits == 16 || kVariables[id].bits == 32; }

}  // namespace

const char* EnduranceHost::file_name() { return "PLC7F000001_0.csv"; }

EnduranceHost::EnduranceHost(const TempDir& folder, uint32_t seed)
    : random_(seed),
      sim_(PLC_SIM_PROGRAM, {"--quiet", folder.write(file_name(), tags())}, SimProcess::Errors::kShown),
      known_(kVariableCount) {
  for (uint32_t id = 0; id < kVariableCount; ++id) {
    known_[id].resize(kVariables[id].elements);
  }
  settings_.ip_address = 0x7F000001;
  settings_.tcp_port = sim_.port();
  ev_plc_init(&settings_);
  ExchangeTap::instance().observe(on_exchange, this);
}

EnduranceHost::~EnduranceHost() { ExchangeTap::instance().observe(nullptr, nullptr); }

void EnduranceHost::on_exchange(void* host, const Exchange& exchange) {
  static_cast<EnduranceHost*>(host)->order_.observe(exchange);
}

void EnduranceHost::tell(const std::string& command) {
  sim_.tell(command);
  ExchangeTap::instance().note("plc-sim was told: " + command);
}

void EnduranceHost::fail(const std::string& what) {
  if (error_.empty()) {
    error_ = "transfer " + std::to_string(transfers_) + ": " + what;
  }
}

// --- what the controller does wrong, and when

std::string EnduranceHost::random_conditions() {
  static constexpr const char* kOn[] = {"any", "resolve", "read", "write", "bit", "masked-write"};
  const std::string on = kOn[below(sizeof kOn / sizeof kOn[0])];
  const std::string times = std::to_string(1 + below(3));
  return " on=" + on + " times=" + times + " after=" + std::to_string(below(3));
}

std::string EnduranceHost::random_fault() {
  static constexpr const char* kFaults[] = {"close", "reset", "duplicate", "drip 0", "wrong-sequence"};
  static constexpr const char* kOfBytes[] = {"cut",   "close-after", "reset-after", "split",
                                             "stale", "trailing",    "oversize",    "garbage"};
  // Up to what a reply has, and up to more than one drain takes.
  const uint32_t bytes = 1 + (below(2) == 0 ? below(60) : below(1200));
  const uint32_t wait_ms = below(3);
  const std::string conditions = random_conditions();
  const uint32_t kind = below(13);
  if (kind >= 5) {
    const std::string name = kOfBytes[kind - 5];
    return name + " " + std::to_string(bytes) + (name == "split" ? " " + std::to_string(wait_ms) : "") + conditions;
  }
  // Out of step, a reply that carries the next sequence number could pass for the next request's own.
  const bool is_ambiguous = kind == 4 && !order_.is_in_step();
  return kFaults[is_ambiguous ? 2 : kind] + conditions;
}

// The draws do not depend on what has happened: a seed gives the same commands.
std::string EnduranceHost::due_faults() {
  static constexpr const char* kSlow[] = {"no-reply", "no-reply on=read", "delay 1200", "no-reply on=directory"};
  const std::string slow = kSlow[below(sizeof kSlow / sizeof kSlow[0])];
  const std::string torn = "split " + std::to_string(1 + below(13)) + " 3" + random_conditions();
  const std::string any = random_fault();
  if (takes_time_) {
    return torn;
  }
  if (transfers_ % kSlowEvery < kSlowEvery / 500) {
    return slow;
  }
  if (transfers_ % kGoneEvery < kGoneEvery / 50) {
    return "gone";
  }
  return any;
}

void EnduranceHost::begin_faults() {
  if (sim_.count("violations") != 0) {
    fail("plc-sim found a request that no damaged reply excuses");
  }
  if (takes_time_) {
    tell("fault clear");
  }
  constexpr uint32_t kLongest = 12;
  to_end_ = 1 + below(kLongest);
  takes_time_ = below(kTakesTimeOnceIn) == 0;
  const std::string fault = due_faults();
  order_.faults_begin();
  ++faults_;
  tell("fault " + fault);
  if (takes_time_) {
    tell(kTakeTime);
  } else if (transfers_ % kSlowAcceptEvery < kSlowAcceptEvery / 450) {
    tell("fault slow-accept 1000");
  }
}

void EnduranceHost::end_faults() {
  tell("fault clear");
  order_.faults_end();
  if (takes_time_) {
    tell(kTakeTime);
  }
  constexpr uint32_t kShortest = 10;
  constexpr uint32_t kFurther = 60;
  to_faults_ = kShortest + below(kFurther);
}

void EnduranceHost::schedule() {
  if (to_faults_ > 0 && --to_faults_ == 0) {
    begin_faults();
  } else if (to_end_ > 0 && --to_end_ == 0) {
    end_faults();
  }
  if (!is_memory_known_ && order_.is_in_step()) {
    restore_memory();
  }
}

// --- what the controller must hold

// In step, the controller has carried out every write that went astray.
void EnduranceHost::restore_memory() {
  tell("set Constant " + std::to_string(kConstantValue));
  for (uint32_t id = 0; id < kVariableCount; ++id) {
    forget(id);
  }
  known_[kConstantId][0] = kConstantValue;
  is_memory_known_ = true;
}

void EnduranceHost::forget(uint32_t id) { known_[id].assign(kVariables[id].elements, std::nullopt); }

void EnduranceHost::learn(uint32_t id, uint32_t offset, uint32_t count, const uint8_t* data) {
  const uint32_t bytes = kVariables[id].bits / 8;
  for (uint32_t i = 0; i < count && is_compared(id); ++i) {
    known_[id][offset + i] = little_endian(data + i * bytes, bytes);
  }
}

void EnduranceHost::check_element(uint32_t id, uint32_t element, uint32_t value) {
  const std::optional<uint32_t>& known = known_[id][element];
  if (!known) {
    return;
  }
  ++checked_values_;
  if (*known != value) {
    fail("id " + std::to_string(id) + " element " + std::to_string(element) + " is " + std::to_string(value) +
         " and should be " + std::to_string(*known));
  }
}

void EnduranceHost::check_values(uint32_t id, uint32_t offset, uint32_t count, const uint8_t* data) {
  const uint32_t bytes = kVariables[id].bits / 8;
  for (uint32_t i = 0; i < count && is_compared(id); ++i) {
    check_element(id, offset + i, little_endian(data + i * bytes, bytes));
  }
}

// Whatever the reply was, the host gets the words that it holds from byte 14 on, each with its bytes swapped.
void EnduranceHost::check_decoding(uint32_t id, uint32_t count, const uint8_t* data) {
  const Bytes& replies = order_.call_replies();
  const auto reply_byte = [&](uint32_t at) { return at < replies.size() ? replies[at] : uint8_t{0}; };
  constexpr uint32_t kFirstValue = 14;
  for (uint32_t i = 0; i < count * kVariables[id].bits / 8; i += 2) {
    if (data[i] != reply_byte(kFirstValue + i + 1) || data[i + 1] != reply_byte(kFirstValue + i)) {
      fail("the value is not what the reply says");
    }
  }
}

void EnduranceHost::count_misled_read(uint32_t id, const uint8_t* data) {
  misled_reads_ += id == kConstantId && little_endian(data, sizeof kConstantValue) != kConstantValue ? 1U : 0U;
}

// --- transfers

void EnduranceHost::count_left_open(int32_t socket_before) {
  // A receive that failed leaves its socket open: the next connect forgets it. This host closes it, to go on for long.
  if (socket_before >= 0 && conn_.socket_fd != socket_before && fcntl(socket_before, F_GETFD) != -1) {
    ++left_open_;
    close(socket_before);
  }
}

void EnduranceHost::finish_call(const std::string& what, uint32_t result, int32_t socket_before) {
  ExchangeTap::instance().end_call();
  ExchangeTap::instance().note(what + " returned " + std::to_string(result));
  ++results_[result];
  count_left_open(socket_before);
  is_memory_known_ = is_memory_known_ && !order_.call_wrote_astray();
  if (result != PLC_OK && result != PLC_NO_CONNECT && result != PLC_FAILED) {
    fail("a result that is none");
  }
  if (result != PLC_OK && order_.call_was_in_step()) {
    fail("a call that got its replies returned " + std::to_string(result));
  }
}

void EnduranceHost::single(bool is_write) {
  uint8_t data[kDataBytes] = {};
  const uint32_t id = is_write ? 1 + below(kVariableCount - 1) : below(kVariableCount);
  const Variable& variable = kVariables[id];
  const uint32_t offset = below(variable.elements);
  const uint32_t count = 1 + below(variable.elements - offset);
  for (uint32_t i = 0; is_write && i < kWrittenBytes; ++i) {
    const auto byte = static_cast<uint8_t>(random_());
    data[i] = variable.fill == Fill::kAny ? byte : variable.fill == Fill::kBits ? byte & 1U : 'a' + byte % 26U;
  }
  RegRequest request = {};
  request.address = id << 16U | offset;
  RegValue value = {count, data};
  const int32_t socket_before = conn_.socket_fd;
  order_.begin_call();
  const uint32_t result = is_write ? ev_plc_write(&request, &value, &conn_) : ev_plc_read(&request, &value, &conn_);
  finish_call(std::string(is_write ? "write" : "read") + " of id " + std::to_string(id) + " offset " +
                  std::to_string(offset) + " count " + std::to_string(count),
              result, socket_before);
  if (is_write) {
    forget(id);
    if (order_.call_was_in_step() && is_memory_known_) {
      learn(id, offset, count, data);
    }
  } else if (result == PLC_OK) {
    check_decoding(id, value.count, data);
    if (order_.call_was_in_step() && is_memory_known_) {
      check_values(id, offset, count, data);
    } else {
      count_misled_read(id, data);
    }
  }
}

void EnduranceHost::batch() {
  std::array<BatchReadRequest, 30> elements{};
  const uint32_t count = 1 + below(elements.size());
  for (uint32_t i = 0; i < count; ++i) {
    uint32_t id = below(kVariableCount);
    while (!kVariables[id].in_batch) {
      id = below(kVariableCount);
    }
    elements[i].address = id << 16U | below(kVariables[id].elements);
    elements[i].count = 1;
  }
  const int32_t socket_before = conn_.socket_fd;
  order_.begin_call();
  const uint32_t result = ev_OMRON_plc_read(elements.data(), static_cast<int32_t>(count), &conn_);
  finish_call("batch of " + std::to_string(count), result, socket_before);
  if (result != PLC_OK || !order_.call_was_in_step() || !is_memory_known_) {
    return;
  }
  for (uint32_t i = 0; i < count; ++i) {
    const uint32_t id = elements[i].address >> 16U;
    check_element(id, elements[i].address & 0xFFFFU, elements[i].value);
  }
}

// A host that pauses lets the drain find what came too much or too late.
void EnduranceHost::pause_sometimes() {
  constexpr uint32_t kOnceIn = 12;
  constexpr int kPauseMs = 2;
  if (below(kOnceIn) == 0 && to_end_ > 0) {
    pollfd wait = {conn_.socket_fd, POLLIN, 0};
    poll(&wait, 1, kPauseMs);
  }
}

void EnduranceHost::transfer() {
  switch (below(5)) {
    case 0:
    case 1:
      return single(false);
    case 2:
    case 3:
      return single(true);
    default:
      return batch();
  }
}

bool EnduranceHost::run_one() {
  schedule();
  pause_sometimes();
  transfer();
  ++transfers_;
  if (!order_.error().empty()) {
    fail(order_.error());
  }
  return error_.empty();
}

// --- what came of it

void EnduranceHost::print_figures(std::FILE* out) {
  const ReplyOrder::Figures& figures = order_.figures();
  std::fprintf(out, "  faults: %lu\n", faults_);
  for (const auto& [result, count] : results_) {
    std::fprintf(out, "  result %u: %lu\n", result, count);
  }
  std::fprintf(out, "  exchanges in step: %lu; of them unanswered %lu, on a closed connection %lu\n", figures.in_step,
               figures.unanswered, figures.closed);
  std::fprintf(out, "  exchanges out of step behind faults: %lu, at most %lu in a row\n", figures.out_of_step,
               figures.longest);
  std::fprintf(out, "    answered by the reply to the request one, two, three before: %lu %lu %lu; else: %lu\n",
               figures.behind[1], figures.behind[2], figures.behind[3], figures.behind[0]);
  std::fprintf(out, "  writes by another request's reply: %lu; reads of a constant that another reply misled: %lu\n",
               figures.astray, misled_reads_);
  std::fprintf(out, "  values checked in step: %lu\n", checked_values_);
  std::fprintf(out, "  sockets that failed receives left open: %lu\n", left_open_);
  std::fprintf(out, "  violations that the simulator saw: %lu\n", sim_.count("violations"));
}

void EnduranceHost::print_error(std::FILE* out) const {
  if (error_.empty()) {
    return;
  }
  std::fprintf(out, "WRONG: %s\nthe last exchanges (times in microseconds):\n", error_.c_str());
  ExchangeTap::instance().print_last(out);
}

bool EnduranceHost::is_plausible() const {
  const auto done = results_.find(PLC_OK);
  return checked_values_ > 0 && faults_ > 0 && done != results_.end() && done->second > transfers_ / 2;
}

}  // namespace plc_test
