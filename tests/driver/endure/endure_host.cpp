// The host of the endurance program.
#include "tests/driver/endure/endure_host.h"

#include <algorithm>
#include <cstring>

namespace plc_endure {
namespace {

constexpr uint32_t kMostRead = 100;
constexpr uint32_t kMostBitsRead = 64;
constexpr uint32_t kMostBitsWritten = 8;
constexpr uint32_t kMostTextRead = 255;  // the length that is asked for has one byte
constexpr uint32_t kMostTextWritten = 501;
constexpr uint32_t kMostUnitsWritten = 255;
constexpr uint32_t kWriteRequestBytes = 1000;  // of 1024, less what stands before the names
constexpr uint32_t kBatchElements = 100;
constexpr uint32_t kUntouched = 0xA5C3E187;
constexpr uint8_t kPattern = 0xA5;
constexpr size_t kClearedBytes = 4;     // of a read's buffer, before its values are stored
constexpr size_t kBitBytes = 8;         // a host clears them before a read of bits
constexpr size_t kPatternBytes = 1024;  // more than any write takes

uint16_t little_endian16(const uint8_t* at) { return static_cast<uint16_t>(at[0] | at[1] << 8U); }

// Bytes of the host's buffer that a read of so many elements may change.
size_t value_bytes(const Variable& variable, uint32_t count) {
  if (variable.is_bit()) return (count + 7) / 8;
  return size_t{2} * count * variable.words();
}

// In the contract build the elements that the equal shares leave over stay unread.
bool has_equal_shares(uint32_t count) {
  constexpr uint32_t kShare = 35;
  return count % (count / kShare + 1) == 0;
}

}  // namespace

Host::Host(const Library& library, const VariableBook& book, uint64_t seed, bool has_faults)
    : library_(library),
      book_(book),
      random_(seed),
      memory_(book.cell_count()),
      rules_(memory_),
      controller_(book, &memory_, &rules_),
      network_(Network::instance()),
      faults_(&network_, &controller_, ~seed, has_faults, library.is_guarded()) {
  network_.set_peer(&faults_);
  for (const Variable& variable : book.variables()) {
    if (variable.in_batch) batched_.push_back(&variable);
  }
  for (uint32_t cell = 0; cell < memory_.size(); ++cell) memory_.set(cell, static_cast<uint16_t>(random_.next()));
  constexpr uint32_t kLoopback = 0x7F000001;
  constexpr uint16_t kPort = 8500;  // wherever it is, the network takes the connect
  settings_.ip_address = kLoopback;
  settings_.tcp_port = kPort;
  library_.init(&settings_);
}

// --- calls

const Variable& Host::any_variable() {
  return book_.variables()[random_.below(static_cast<uint32_t>(book_.variables().size()))];
}

uint32_t Host::most_elements(const Variable& variable, bool is_write) const {
  if (variable.is_text()) return is_write ? kMostTextWritten : kMostTextRead;
  if (!variable.is_array) return 1;
  if (!is_write) return variable.is_bit() ? kMostBitsRead : kMostRead;
  if (variable.is_bit()) return variable.rewrites_words ? 1 : kMostBitsWritten;
  return std::min(kMostUnitsWritten / variable.words(), kWriteRequestBytes / variable.name_bytes);
}

// Short spans and single elements often, the longest now and then.
void Host::choose_span(const Variable& variable, uint32_t most, uint32_t* first, uint32_t* count) {
  *first = random_.once_in(4) ? 0 : random_.below(variable.elements);
  const uint32_t room = std::min(most, variable.elements - *first);
  const uint32_t kind = random_.below(4);
  *count = kind == 0 ? room : 1 + random_.below(kind == 1 ? room : std::min(room, 8U));
}

void Host::begin_call(std::shared_ptr<WriteCall> call, const std::string& what) {
  constexpr uint32_t kWaits[] = {0, 1, 1, 1, 2, 30};
  constexpr int64_t kSecondUs = 1000000;
  conn_.recv_timeout_s = kWaits[random_.below(6)];
  conn_.delay_ms = random_.once_in(50) ? random_.below(20) : 0;
  network_.pass(random_.once_in(10) ? random_.below(10000) : random_.below(400));
  call->number = ++call_number_;
  rules_.begin_call(std::move(call));
  memory_.begin_call();
  faults_.set_wait_us(conn_.recv_timeout_s * kSecondUs);
  constexpr uint64_t kDrain = 65536;
  constexpr uint64_t kContractDrain = 512;
  was_clean_ = network_.is_quiet(conn_.socket_fd, library_.is_guarded() ? kDrain : kContractDrain);
  exchanges_before_ = network_.exchanges();
  began_us_ = network_.now_us();
  trouble_before_ = faults_.trouble();
  network_.journal().add_note(network_.now_us(), "call " + std::to_string(call_number_) + ": " + what + ", waits " +
                                                     std::to_string(conn_.recv_timeout_s) + " s");
  network_.begin_call([](void* rules) { return static_cast<const Rules*>(rules)->meaning_now(); }, &rules_);
}

void Host::end_call(uint32_t result) {
  network_.end_call();
  network_.journal().add_note(network_.now_us(),
                              "call " + std::to_string(call_number_) + " returned " + std::to_string(result));
  ++figures_.results[result == PLC_OK ? 0 : result == PLC_NO_CONNECT ? 1 : result == PLC_FAILED ? 2 : 3];
  if (result != PLC_OK && result != PLC_NO_CONNECT && result != PLC_FAILED) {
    rules_.count(Rule::kHarm, "a result that is none");
  }
  figures_.changed_meanwhile += memory_.moments() > 1 ? 1U : 0U;
  if (was_clean_ && trouble_before_ == faults_.trouble()) {
    ++figures_.clean_calls;
    if (result != PLC_OK) rules_.count(Rule::kFailedWithoutFault, "call " + std::to_string(call_number_));
  }
  check_time();
  rules_.end_call();
  if (network_.stuck() > stuck_) {
    stuck_ = network_.stuck();
    rules_.count(Rule::kHarm, "a receive that would have waited for ever");
  }
  // A receive that fails leaves its socket open in the contract build: the next connect forgets it.
  if (network_.left_open() > left_open_) {
    left_open_ = network_.left_open();
    if (library_.is_guarded()) rules_.count(Rule::kHarm, "a descriptor left open");
  }
}

// A connect, a pause, and the wait for each reply: no reply makes it longer, however it comes.
void Host::check_time() {
  constexpr int64_t kConnectUs = 30000;
  constexpr int64_t kMillisecondUs = 1000;
  constexpr int64_t kSecondUs = 1000000;
  constexpr int64_t kMarginUs = 50000;
  const auto exchanges = static_cast<int64_t>(network_.exchanges() - exchanges_before_);
  const int64_t longest = kConnectUs + conn_.delay_ms * kMillisecondUs + kMarginUs +
                          exchanges * (conn_.recv_timeout_s * kSecondUs + kMarginUs);
  const int64_t taken = network_.now_us() - began_us_ - network_.stalled_us();
  if (taken > longest) {
    rules_.count(Rule::kHarm, "call " + std::to_string(call_number_) + " took " + std::to_string(taken) + " us");
  }
}

// --- reads

void Host::read() {
  const Variable& variable = any_variable();
  uint32_t first = 0;
  uint32_t count = 0;
  choose_span(variable, most_elements(variable, false), &first, &count);
  data_.fill(kPattern);
  std::fill_n(data_.begin(), variable.is_bit() ? kBitBytes : 0, uint8_t{0});
  before_ = data_;
  const uint32_t scale = variable.bits == 64 ? 2 : 1;
  RegRequest request = {};
  request.reg_type = variable.reg_type;
  request.address = variable.low_id << 16U | first * scale;
  RegValue value = {count * scale, data_.data()};
  begin_call(std::make_shared<WriteCall>(), "read of " + variable.name + " from " + std::to_string(first) + ", " +
                                                std::to_string(count) + " elements");
  const uint32_t result = library_.read(&request, &value, &conn_);
  end_call(result);
  check_read(variable, first, count, result);
}

// What the buffer holds when the read is made at that moment.
void Host::expect(const Variable& variable, uint32_t first, uint32_t count, uint32_t moment, uint8_t* data) const {
  std::fill_n(data, kClearedBytes, uint8_t{0});
  for (uint32_t i = 0; i < count; ++i) {
    const Spot& spot = variable.spots[first + i];
    if (variable.is_bit()) {
      const unsigned bit = unsigned{memory_.word_at(moment, spot.cell)} >> spot.bit & 1U;
      data[i / 8] = static_cast<uint8_t>(data[i / 8] | bit << i % 8);
      continue;
    }
    for (uint32_t w = 0; w < variable.words(); ++w) {
      const uint16_t word = memory_.word_at(moment, spot.cell + w);
      uint8_t* at = data + size_t{2} * (i * variable.words() + w);
      if (!variable.is_text()) {
        at[0] = static_cast<uint8_t>(word);
        at[1] = static_cast<uint8_t>(word >> 8U);
        continue;
      }
      // A text ends with its first 0, which is stored too.
      at[0] = static_cast<uint8_t>(word >> 8U);
      if (at[0] == 0) return;
      at[1] = static_cast<uint8_t>(word);
      if (at[1] == 0) return;
    }
  }
}

bool Host::is_expected(const Variable& variable, uint32_t first, uint32_t count, uint32_t moment, size_t bytes) const {
  std::array<uint8_t, kPatternBytes> expected;
  std::memcpy(expected.data(), before_.data(), expected.size());
  expect(variable, first, count, moment, expected.data());
  return std::memcmp(expected.data(), data_.data(), bytes) == 0;
}

void Host::check_read(const Variable& variable, uint32_t first, uint32_t count, uint32_t result) {
  const std::string what = "read of " + variable.name + " from " + std::to_string(first);
  if (result != PLC_OK) {
    if (data_ != before_) rules_.count(Rule::kHarm, what + " failed and left something in the buffer");
    return;
  }
  figures_.values += count;
  // All values of a read are of one moment. Those of the latest are looked at first: most calls have one alone.
  const size_t values = std::max(kClearedBytes, value_bytes(variable, count));
  uint32_t moment = memory_.moments();
  while (moment > 0 && !is_expected(variable, first, count, moment - 1, values)) --moment;
  if (moment == 0) rules_.count(Rule::kReadWrong, what + ", " + std::to_string(count) + " elements");
  if (!std::equal(data_.begin() + static_cast<std::ptrdiff_t>(values), data_.end(),
                  before_.begin() + static_cast<std::ptrdiff_t>(values))) {
    rules_.count(Rule::kHarm, what + " stored more than was asked for");
  }
}

// --- writes

void Host::fill_data(const Variable& variable, uint32_t count) {
  data_.fill(kPattern);
  if (variable.is_bit()) {
    data_[0] = static_cast<uint8_t>(random_.below(1U << count));
    return;
  }
  const size_t bytes = value_bytes(variable, count);
  for (size_t i = 0; i < bytes; ++i) {
    const uint32_t drawn = random_.next();
    const auto letter = static_cast<uint8_t>(drawn % 64 == 0 ? 0 : 'a' + drawn % 26);
    data_[i] = variable.is_text() ? letter : static_cast<uint8_t>(drawn);
  }
}

void Host::fill_targets(const Variable& variable, uint32_t first, uint32_t count, const uint8_t* data,
                        WriteCall* call) {
  call->rewrites_word = variable.rewrites_words;
  for (uint32_t i = 0; i < count; ++i) {
    const Spot& spot = variable.spots[first + i];
    if (variable.is_bit()) {
      const auto mask = static_cast<uint16_t>(1U << spot.bit);
      const bool is_one = (data[0] >> i & 1U) != 0;
      call->targets.push_back({spot.cell, mask, is_one ? mask : uint16_t{0}, false});
      continue;
    }
    for (uint32_t w = 0; w < variable.words(); ++w) {
      const uint8_t* at = data + size_t{2} * (i * variable.words() + w);
      const uint16_t word = variable.is_text() ? big_endian16(at) : little_endian16(at);
      call->targets.push_back({spot.cell + w, 0xFFFF, word, false});
    }
  }
}

void Host::write() {
  const Variable* chosen = &any_variable();
  while (!chosen->is_written) chosen = &any_variable();
  const Variable& variable = *chosen;
  uint32_t first = 0;
  uint32_t count = 0;
  choose_span(variable, most_elements(variable, true), &first, &count);
  fill_data(variable, count);
  before_ = data_;
  auto call = std::make_shared<WriteCall>();
  fill_targets(variable, first, count, data_.data(), call.get());
  const uint32_t scale = variable.bits == 64 ? 2 : 1;
  RegRequest request = {};
  request.reg_type = variable.reg_type;
  request.address = variable.low_id << 16U | first * scale;
  RegValue value = {count * scale, data_.data()};
  begin_call(std::move(call), "write to " + variable.name + " from " + std::to_string(first) + ", " +
                                  std::to_string(count) + " elements");
  const uint32_t result = library_.write(&request, &value, &conn_);
  if (result == PLC_OK) {
    rules_.end_write();
    figures_.written += count;
  }
  end_call(result);
  // The bit's old value is left in the buffer where a word is read and given back.
  const uint8_t shown = variable.rewrites_words ? 1 : 0;
  before_[0] = static_cast<uint8_t>((before_[0] & ~shown) | (data_[0] & shown));
  if (data_ != before_) rules_.count(Rule::kHarm, "write to " + variable.name + " changed the host's buffer");
}

// --- batches

// Of one program or of the global variables, now and then with elements side by side, which are read as a run.
uint32_t Host::draw_batch(BatchReadRequest* elements) {
  uint32_t count = 1 + random_.below(random_.once_in(4) ? kBatchElements : 30);
  while (!library_.is_guarded() && !has_equal_shares(count)) ++count;  // 69 and 100 are followed by 72 and 102
  count = std::min(count, 99U);
  const auto scope = static_cast<Scope>(random_.once_in(3) ? 1 + random_.below(kScopes - 1) : 0);
  uint32_t run = 0;
  for (uint32_t i = 0; i < count; ++i) {
    BatchReadRequest& element = elements[i];
    element = {};
    element.count = 1;
    element.value = kUntouched;
    if (run > 0) {
      --run;
      element.reg_type = elements[i - 1].reg_type;
      element.address = elements[i - 1].address + 1;
      continue;
    }
    const Variable* variable = batched_[random_.below(static_cast<uint32_t>(batched_.size()))];
    while (variable->scope != scope) variable = batched_[random_.below(static_cast<uint32_t>(batched_.size()))];
    // A text is read two characters at a time, at any but its last.
    const uint32_t places = variable->is_text() ? 2 * variable->elements - 1 : variable->elements;
    const uint32_t at = random_.below(places);
    element.reg_type = variable->reg_type;
    element.address = variable->low_id << 16U | at;
    // Neighbouring positions of a text make a run, whose names are asked for more than is taken of the reply.
    if (variable->is_text() && i > 0 && element.address == elements[i - 1].address + 1) {
      element.address = variable->low_id << 16U;
    }
    if (variable->is_array && random_.once_in(3)) run = random_.below(variable->elements - at);
  }
  return count;
}

bool Host::is_batch_value(const Variable& variable, const BatchReadRequest& element) const {
  const uint32_t at = element.address & 0xFFFFU;
  const Spot& spot = variable.spots[variable.is_text() ? at / 2 : at];
  for (uint32_t moment = memory_.moments(); moment > 0; --moment) {
    const unsigned word = memory_.word_at(moment - 1, spot.cell);
    if (variable.is_text()) {
      const unsigned next = at % 2 == 0 ? 0 : memory_.word_at(moment - 1, spot.cell + 1);
      const char text[3] = {static_cast<char>(at % 2 == 0 ? word >> 8U : word),
                            static_cast<char>(at % 2 == 0 ? word : next >> 8U), 0};
      const auto* shown = reinterpret_cast<const char*>(static_cast<uintptr_t>(element.value));
      if (shown != nullptr && element.value != kUntouched && std::strcmp(shown, text) == 0) return true;
      continue;
    }
    const uint32_t high = variable.bits == 32 ? memory_.word_at(moment - 1, spot.cell + 1) : 0U;
    const uint32_t value = variable.is_bit() ? word >> spot.bit & 1U : word | high << 16U;
    if (element.value == value) return true;
  }
  return false;
}

void Host::check_batch(const BatchReadRequest* before, const BatchReadRequest* elements, uint32_t count,
                       uint32_t result) {
  for (uint32_t i = 0; i < count; ++i) {
    BatchReadRequest same = elements[i];
    same.value = before[i].value;
    if (std::memcmp(&same, &before[i], sizeof same) != 0) {
      rules_.count(Rule::kHarm, "batch changed more than the value of element " + std::to_string(i));
    }
    const auto is_named = [&](const Variable& variable) {
      return variable.low_id == before[i].address >> 16U && variable.reg_type == before[i].reg_type;
    };
    const Variable& variable = *std::find_if(book_.variables().begin(), book_.variables().end(), is_named);
    const bool was_stored = elements[i].value != kUntouched;
    if (result == PLC_OK && !is_batch_value(variable, elements[i])) {
      rules_.count(Rule::kReadWrong, "batch of " + std::to_string(count) + ", element " + std::to_string(i) + ", " +
                                         variable.name + " " + std::to_string(before[i].address & 0xFFFFU) + ": got " +
                                         std::to_string(elements[i].value));
    } else if (result != PLC_OK && library_.is_guarded() && was_stored && !is_batch_value(variable, elements[i])) {
      rules_.count(Rule::kHarm, "failed batch left a value that is none in element " + std::to_string(i));
    }
  }
  figures_.values += result == PLC_OK ? count : 0;
}

void Host::batch() {
  std::array<BatchReadRequest, kBatchElements + 2> elements;
  const uint32_t count = draw_batch(elements.data());
  const auto before = elements;
  begin_call(std::make_shared<WriteCall>(), "batch of " + std::to_string(count));
  const uint32_t result = library_.read_batch(elements.data(), static_cast<int32_t>(count), &conn_);
  end_call(result);
  check_batch(before.data(), elements.data(), count, result);
}

void Host::run_one() {
  switch (random_.below(5)) {
    case 0:
    case 1:
      read();
      break;
    case 2:
    case 3:
      write();
      break;
    default:
      batch();
      break;
  }
  ++figures_.transfers;
}

}  // namespace plc_endure
