// Fills the host's records, calls the driver, checks what it may touch.
#include "client/driver/driver_session.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <utility>

#include "client/client_error.h"
#include "client/driver/refused_port.h"

namespace plc_client::core {
namespace {

constexpr size_t kGuardBytes = 64;
constexpr uint8_t kGuardPattern = 0xA5;
constexpr int32_t kNoSocket = -1;

RegRequest make_request(const Target& target, uint32_t register_id, uint32_t offset) {
  RegRequest request{};
  request.area = target.area;
  request.reg_type = request_reg_type(register_id);
  request.address = request_address(register_id, offset);
  return request;
}

void check_guards(const GuardedBuffer& buffer) {
  if (!buffer.is_intact()) throw ClientError(ClientError::Kind::kLibrary, "the driver wrote outside the host's buffer");
}

// What is left of a refused connection: the contract build does not ask how a connect ended.
bool could_not_send(const std::vector<std::string>& lines) {
  return std::any_of(lines.begin(), lines.end(),
                     [](const std::string& line) { return line.find("send error") != std::string::npos; });
}

}  // namespace

uint8_t request_reg_type(uint32_t register_id) {
  return register_id < kFirstIndexedId ? 0 : static_cast<uint8_t>(register_id >> 16);
}

uint32_t request_address(uint32_t register_id, uint32_t offset) { return register_id << 16 | (offset & 0xFFFF); }

std::string target_text(const Target& target) {
  if (!target.name.empty()) return target.name;
  std::string text;
  for (unsigned shift = 32; shift > 0; shift -= 8) {
    text += std::to_string((target.ip_address >> (shift - 8)) & 0xFF);
    text += shift > 8 ? '.' : ':';
  }
  return text + std::to_string(target.tcp_port);
}

std::string tag_file_name(const Target& target) {
  char name[32];
  std::snprintf(name, sizeof name, "PLC%X_%d.csv", target.ip_address, target.area);
  return name;
}

GuardedBuffer::GuardedBuffer(size_t bytes) : memory_(bytes + 2 * kGuardBytes, 0) {
  std::fill_n(memory_.begin(), kGuardBytes, kGuardPattern);
  std::fill_n(memory_.rbegin(), kGuardBytes, kGuardPattern);
}

uint8_t* GuardedBuffer::data() { return memory_.data() + kGuardBytes; }

size_t GuardedBuffer::size() const { return memory_.size() - 2 * kGuardBytes; }

void GuardedBuffer::clear() { std::memset(data(), 0, size()); }

bool GuardedBuffer::is_intact() const {
  const auto untouched = [](uint8_t byte) { return byte == kGuardPattern; };
  return std::all_of(memory_.begin(), memory_.begin() + kGuardBytes, untouched) &&
         std::all_of(memory_.rbegin(), memory_.rbegin() + kGuardBytes, untouched);
}

DriverSession::DriverSession(const DriverLibrary& library, LineSource source, const Target& target, LineSink sink)
    : library_(library), take_lines_(std::move(source)), target_(target), sink_(std::move(sink)) {
  settings_.ip_address = target.ip_address;
  settings_.tcp_port = target.tcp_port;
  settings_.socket_kind = 'U';
  connection_.socket_fd = kNoSocket;
  connection_.recv_timeout_s = target.recv_timeout_s;
  connection_.delay_ms = target.delay_ms;
  const uint32_t code = library_.init(&settings_);
  for (const std::string& line : take_lines_()) sink_(line);
  if (code != PLC_OK) throw ClientError(ClientError::Kind::kLibrary, "ev_plc_init returned " + std::to_string(code));
}

CallResult DriverSession::finish(bool single, uint32_t code, uint32_t count,
                                 std::chrono::steady_clock::time_point start) {
  return note_call(single, code, count, start, take_lines_());
}

void DriverSession::count_call(uint32_t code, std::chrono::nanoseconds took) {
  ++figures_.calls;
  if (code != PLC_OK) {
    ++figures_.failures;
    return;
  }
  const bool first = figures_.calls - figures_.failures == 1;
  figures_.shortest = first ? took : std::min(figures_.shortest, took);
  figures_.longest = std::max(figures_.longest, took);
  figures_.total += took;
}

CallResult DriverSession::note_call(bool single, uint32_t code, uint32_t count,
                                    std::chrono::steady_clock::time_point start, std::vector<std::string> lines) {
  if (!is_connected()) {
    found_.clear();
    programs_.clear();
  }
  const std::chrono::nanoseconds took = std::chrono::steady_clock::now() - start;
  CallResult result;
  result.time = std::chrono::system_clock::now();
  result.code = code;
  result.count = count;
  // A batch returns the code for a reply that is too short as well, and keeps the connection then.
  result.connection_lost = (single && code == PLC_NO_CONNECT) || (code != PLC_OK && connection_.socket_fd == kNoSocket);
  result.is_interrupted = result.connection_lost && stop_ && stop_();
  if (!result.is_interrupted) count_call(code, took);
  result.lines = std::move(lines);
  result.is_refused = !library_.is_guarded && result.connection_lost && could_not_send(result.lines) &&
                      is_port_refused(target_.ip_address, target_.tcp_port);
  for (const std::string& line : result.lines) sink_(line);
  for (const auto& observer : observers_) observer(result);
  return result;
}

CallResult DriverSession::connect(uint32_t (*hook)(ConnContext*)) {
  const auto start = std::chrono::steady_clock::now();
  const uint32_t code = hook(&connection_);
  return finish(true, code, 0, start);
}

CallResult DriverSession::read(uint32_t register_id, uint32_t offset, uint32_t count, GuardedBuffer& buffer) {
  RegRequest request = make_request(target_, register_id, offset);
  RegValue value{count, buffer.data()};
  const auto start = std::chrono::steady_clock::now();
  const uint32_t code = library_.read(&request, &value, &connection_);
  CallResult result = finish(true, code, value.count, start);
  check_guards(buffer);
  return result;
}

CallResult DriverSession::write(uint32_t register_id, uint32_t offset, uint32_t count, GuardedBuffer& buffer) {
  RegRequest request = make_request(target_, register_id, offset);
  RegValue value{count, buffer.data()};
  const auto start = std::chrono::steady_clock::now();
  const uint32_t code = library_.write(&request, &value, &connection_);
  CallResult result = finish(true, code, value.count, start);
  check_guards(buffer);
  return result;
}

CallResult DriverSession::read_batch(std::vector<BatchReadRequest>& elements) {
  const auto count = static_cast<uint32_t>(elements.size());
  BatchReadRequest guard;
  std::memset(&guard, kGuardPattern, sizeof guard);
  elements.push_back(guard);
  const auto start = std::chrono::steady_clock::now();
  const uint32_t code = library_.read_batch(elements.data(), static_cast<int32_t>(count), &connection_);
  CallResult result = finish(false, code, count, start);
  const bool intact = std::memcmp(&elements.back(), &guard, sizeof guard) == 0;
  elements.pop_back();
  if (!intact) throw ClientError(ClientError::Kind::kLibrary, "the driver wrote outside the host's batch");
  return result;
}

const ProgramProbe* DriverSession::probe_for(std::string_view name) {
  auto place = probes_.find(name);
  if (place == probes_.end()) {
    const std::string program(name);
    place = probes_.try_emplace(program).first;
    place->second = ProgramProbe::load(library_, target_.ip_address, target_.area, next_probe_area_, program);
    take_lines_();
  }
  return place->second ? &*place->second : nullptr;
}

std::optional<bool> DriverSession::has_program(const ProgramProbe& probe, size_t length,
                                               std::optional<CallResult>& failed) {
  std::vector<BatchReadRequest> requests = probe.requests(length);
  const auto start = std::chrono::steady_clock::now();
  // The pause is for requests, and none is sent.
  const uint32_t delay_ms = std::exchange(connection_.delay_ms, 0U);
  const uint32_t code = library_.read_batch(requests.data(), static_cast<int32_t>(requests.size()), &connection_);
  connection_.delay_ms = delay_ms;
  std::vector<std::string> lines = take_lines_();
  const std::optional<bool> answer = ProgramProbe::take_answer(lines);
  if (!answer && !is_connected()) {
    failed = note_call(false, code, 0, start, std::move(lines));
  } else {
    for (const std::string& line : lines) sink_(line);
  }
  return answer;
}

void DriverSession::find_beginnings(const ProgramProbe& probe, std::string_view name, ProgramAnswer& answer) {
  for (size_t length = name.size(); length-- > 0 && !answer.is_of_two;) {
    const std::optional<bool> is_there = has_program(probe, length, answer.no_connection);
    if (!is_there) return;
    if (!*is_there) continue;
    answer.is_of_two = answer.match == ProgramMatch::kBeginning;
    if (!answer.is_of_two) answer.bytes = length;
    answer.match = ProgramMatch::kBeginning;
  }
}

ProgramAnswer DriverSession::find_program(std::string_view name) {
  if (const auto known = found_.find(name); known != found_.end()) return known->second;
  const ProgramProbe* probe = probe_for(name);
  if (probe == nullptr) return {};
  ProgramAnswer answer;
  const std::optional<bool> is_there = has_program(*probe, name.size(), answer.no_connection);
  if (is_there) answer.match = *is_there ? ProgramMatch::kWhole : ProgramMatch::kNone;
  if (is_there == true) answer.bytes = name.size();
  if (is_there == false) find_beginnings(*probe, name, answer);
  if (!answer.no_connection) found_.emplace(std::string(name), answer);
  return answer;
}

std::optional<bool> DriverSession::has_longer_name(size_t units, std::optional<CallResult>& failed) {
  for (const std::string& declared : longer_names(names_, units)) {
    const ProgramAnswer other = find_program(declared);
    failed = other.no_connection;
    if (failed) return std::nullopt;
    if (directory_units(std::string_view(declared).substr(0, other.bytes)) > units) return true;
  }
  return false;
}

void DriverSession::judge_beginning(std::string_view name, ProgramAnswer& answer) {
  answer.match = ProgramMatch::kNone;
  answer.is_declared = is_beginning_declared(names_, name, answer.bytes);
  if (!is_likely_cut(names_, name, answer.bytes)) return;
  const std::optional<bool> has_longer =
      has_longer_name(directory_units(name.substr(0, answer.bytes)), answer.no_connection);
  if (!has_longer || *has_longer) return;
  answer.rivals = rivals(names_, name, answer.bytes);
  if (answer.rivals.empty() && !answer.is_of_two) answer.match = ProgramMatch::kBeginning;
}

ProgramAnswer DriverSession::ask_for_program(std::string_view name) {
  if (!asks_for_programs_ || !library_.is_guarded || library_.load_tags == nullptr) return {};
  if (const auto known = programs_.find(name); known != programs_.end()) return known->second;
  ProgramAnswer answer = find_program(name);
  if (answer.match == ProgramMatch::kBeginning) judge_beginning(name, answer);
  if (!answer.no_connection) programs_.emplace(std::string(name), answer);
  return answer;
}

std::string code_text(uint32_t code) {
  switch (code) {
    case PLC_OK:
      return "done (0)";
    case PLC_NO_CONNECT:
      return "the connection could not be set up (2)";
    case PLC_FAILED:
      return "the transfer failed (3)";
    case PLC_NO_WRITER:
      return "the driver has no write for this kind of variable (4294967295)";
    default:
      return "unexpected return code " + std::to_string(code);
  }
}

}  // namespace plc_client::core
