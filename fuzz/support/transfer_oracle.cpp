// What a transfer of the guarded build must come to.
#include "transfer_oracle.h"

#include <cstring>

#include "driver_under_fuzz.h"
#include "exchange_referee.h"
#include "plc_driver/driver_state.h"
#include "scripted_link.h"

namespace fuzz {
namespace {

constexpr uint32_t kValues = 14;
constexpr uint8_t kDeviceDm = 6;
constexpr uint8_t kDeviceEm = 23;
constexpr uint8_t kDeviceNone = 30;
constexpr uint32_t kMostBits = 64;
constexpr uint32_t kMostManyBits = 8;
constexpr int kAmbiguous = -1;
constexpr uint8_t kNumberOfTheFile = 7;

uint32_t unit_at(const Exchange& exchange, size_t at) {
  return static_cast<uint32_t>(exchange.reply[at]) << 8 | exchange.reply[at + 1];
}

bool is_array(const TagEntry& tag) { return tag.shape != PLC_SCALAR && tag.shape != PLC_STRING; }

bool is_inside_word(const TagEntry& tag, bool in_batch) {
  if (in_batch) return tag.name_kind != 1;
  const uint8_t device = tag.device_kind;
  const bool in_structure = device == kDeviceDm || device == kDeviceEm || device == kDeviceNone;
  return (tag.name_kind != 1 && in_structure) || (tag.dim1_high != 0 && device == kDeviceEm);
}

// Place of a bit in its word: told by its name's record, or the end of its address.
unsigned bit_place(const TagEntry& tag, const Exchange& resolve, uint32_t name, bool in_batch) {
  const uint32_t record = name_record(resolve, name);
  return resolve.reply[record + (is_inside_word(tag, in_batch) ? 13 : 8)] % 16;
}

// The references of a read are the handles of the names in their order; a bit's address may lack its last digit.
void judge_references(const Exchange& resolve, const Exchange& read, bool of_bits) {
  uint32_t name = 0;
  for (size_t at = 18; at + 8 <= read.request_bytes; at += 8, ++name) {
    const uint32_t record = name_record(resolve, name);
    if (record == 0) accuse("reads what was not resolved");
    const uint8_t* const handle = resolve.reply + record + 4;
    const uint8_t* const reference = read.request + at;
    const uint8_t mask = of_bits ? 0xF0 : 0xFF;
    if (reference[1] != handle[0] || memcmp(reference + 4, handle + 1, 3) != 0 ||
        ((reference[7] ^ handle[4]) & mask) != 0) {
      accuse("reads by another handle");
    }
  }
}

// A write carries the handle of the name before it, or its last bytes. A write of no element names nothing.
void judge_written_handle(const Exchange& resolve, const Exchange& write) {
  if (names_asked(resolve.request) == 0) return;
  const uint8_t* const handle = resolve.reply + 21;
  const uint8_t* const request = write.request;
  bool is_own = true;
  if (write.kind() == 0x1E01) {
    is_own = request[13] == handle[0] && memcmp(request + 20, handle + 3, 2) == 0;
  } else if (write.kind() == 0x1E03) {
    is_own = request[14] == handle[0] && memcmp(request + 15, handle + 1, 4) == 0;
  } else if (write.kind() == 0x3200 || write.kind() == 0x3300) {
    is_own = memcmp(request + 14, handle + 3, 2) == 0;
  }
  if (!is_own) accuse("writes by another handle");
}

void expect_values(const TagEntry& tag, uint32_t count, const Exchange& resolve, const Exchange& read, uint8_t* out) {
  const uint8_t* const values = read.reply + kValues;
  memset(out, 0, 4);
  if (tag.bit_width == 1) {
    for (uint32_t i = 0; i < count; ++i) {
      const uint32_t bit = unit_at(read, kValues + 2 * i) >> bit_place(tag, resolve, i, false) & 1;
      out[i / 8] = static_cast<uint8_t>(out[i / 8] + (bit << i % 8));
    }
  } else if (tag.bit_width != 0) {
    for (uint32_t i = 0; i < count * (tag.bit_width / 16U); ++i) {
      out[2 * i] = values[2 * i + 1];
      out[2 * i + 1] = values[2 * i];
    }
  } else if (count > 0) {  // a text, up to its end
    const size_t length = read.reply_bytes - kValues;
    const auto* const end = static_cast<const uint8_t*>(memchr(values, 0, length));
    memcpy(out, values, end == nullptr ? length : static_cast<size_t>(end - values) + 1);
  }
}

// Why a batch cannot be right whatever is answered.
bool is_hopeless(const BatchReadRequest* elements, size_t count) {
  const TagEntry& first = tag_of(elements[0].address >> 16);
  for (size_t i = 0; i < count; ++i) {
    const TagEntry& tag = tag_of(elements[i].address >> 16);
    if (tag.is_global != first.is_global) return true;
    if (tag.is_global == 0 && strcmp(tag.scope_name, first.scope_name) != 0) return true;
    if (tag.bit_width == 8 || tag.bit_width == 64) return true;
    if (tag.bit_width != 1) continue;
    if (is_array(tag) && tag.device_kind == kDeviceEm) return true;
    if (count > 1 && elements[i].count > 1) return true;
  }
  return false;
}

// Of a run of texts more is asked for than it takes: such a frame fails, whatever was answered.
bool has_text_run(const Exchange& read, const BatchReadRequest* elements, size_t next, size_t count) {
  for (size_t at = 18; at + 8 <= read.request_bytes && next < count; ++next) {
    const TagEntry& tag = tag_of(elements[next].address >> 16);
    if (tag.bit_width == 0 && read.request[at + 3] != 1) return true;
    at += tag.bit_width == 1 && count > 1 ? 16 : 8;
  }
  return false;
}

// Bits that cannot be written as the call says.
bool is_hopeless_write(const TagEntry& tag, uint32_t count) {
  if (tag.bit_width != 1 && tag.bit_width != 8 && !(tag.bit_width == 0 && tag.shape != PLC_STRING)) return false;
  if (count > 1 && (tag.name_kind == 2 || tag.name_kind == 3 || tag.device_kind == kDeviceEm)) return true;
  return count > kMostManyBits && tag.shape != PLC_SCALAR;
}

bool is_word(const TagEntry& tag) { return tag.bit_width == 16 || tag.bit_width == 32 || tag.bit_width == 64; }

}  // namespace

const TagEntry& tag_of(uint32_t id) {
  static const TagEntry* const first = tag_at(0);
  return first[id];
}

uint32_t known_tags() {
  static const uint32_t count = tag_count();
  return count;
}

TransferOracle::TransferOracle(Directory* directory) : directory_(directory), was_connected_(referee.is_open()) {
  referee.begin_transfer();
}

// What the exchanges alone decide. True when each of them was answered, whole, complete and without a status.
bool TransferOracle::judge_connection(uint32_t result, uint32_t incomplete_result) {
  if (!referee.is_at_rest()) accuse("leaves an exchange under way, or a connection that failed open");
  const bool is_open = referee.is_open();
  if (context()->socket_fd != (is_open ? ScriptedLink::kSocket : -1)) accuse("shows the host another socket");
  if ((plc::init != 0) != is_open) accuse("takes a closed connection for an open one");
  const Exchange* const last = referee.end() - 1;
  const bool has_any = referee.end() != referee.begin();
  if (!was_connected_) {
    const bool is_connected = referee.end() - referee.begin() >= 2 && referee.begin()[1].content == Content::kGood;
    if (!is_connected) {
      if (is_open) accuse("keeps a connection without a directory");
      if (result != PLC_NO_CONNECT) accuse("does not say that there is no connection");
      return false;
    }
    directory_->choose(last_directory());
  }
  if (referee.has_failed()) {
    if (is_open) accuse("keeps a connection that failed");
    if (result != PLC_FAILED) accuse("does not say that an exchange failed");
    return false;
  }
  if (!is_open) accuse("closes a good connection");
  if (!has_any || last->content == Content::kGood) return true;
  const uint32_t expected = last->content == Content::kRefused ? uint32_t{PLC_FAILED} : incomplete_result;
  if (result != expected) accuse("does not say that the reply was a refusal, or incomplete");
  return false;
}

size_t TransferOracle::own_exchanges() const {
  size_t count = 0;
  for (const Exchange& exchange : referee) count += exchange.is_directory() ? 0U : 1U;
  return count;
}

// Every request that carries a handle carries that of the names before it.
void TransferOracle::judge_requests(const TagEntry& tag) const {
  const Exchange* resolve = nullptr;
  const Exchange* read = nullptr;
  for (const Exchange& exchange : referee) {
    if (exchange.is_directory()) continue;
    if (exchange.is_resolve()) {
      resolve = &exchange;
      read = nullptr;
      continue;
    }
    if (resolve == nullptr) accuse("carries a handle that nobody gave it");
    if (exchange.is_read()) {
      read = &exchange;
      continue;
    }
    judge_written_handle(*resolve, exchange);
    if (read == nullptr || exchange.kind() != 0x1E01 || exchange.request_bytes < 24) continue;
    const uint32_t before = unit_at(*read, kValues);
    const uint32_t after = static_cast<uint32_t>(exchange.request[22]) << 8 | exchange.request[23];
    const uint32_t changed = before ^ after;
    if (tag.bit_width == 1 && (changed & (changed - 1)) != 0) accuse("writes more than its bit of a word");
  }
}

// The number of a local variable's program: exactly named, else the one that its name begins with.
int TransferOracle::program_of(const TagEntry& tag, bool by_beginning) const {
  int found = kNumberOfTheFile;
  size_t beginnings = 0;
  for (size_t i = 0; i < directory_->count; ++i) {
    const Program& program = directory_->programs[i];
    if (strcmp(program.name, tag.scope_name) == 0) return program.number;
    if (strncmp(program.name, tag.scope_name, strlen(program.name)) == 0 && by_beginning && ++beginnings == 1) {
      found = program.number;
    }
  }
  return beginnings > 1 ? kAmbiguous : found;
}

void TransferOracle::judge_program(const TagEntry& tag, int program) const {
  if (tag.is_global == 1) return;
  for (const Exchange& exchange : referee) {
    if (exchange.is_resolve() && exchange.request[17] != program) accuse("names another program's variable");
  }
}

void TransferOracle::judge_read(const TagEntry& tag, uint32_t count, uint32_t result, const uint8_t* buffer,
                                size_t buffer_bytes) {
  uint8_t expected[4096];
  memset(expected, kFill, buffer_bytes);
  const bool is_good = judge_connection(result, PLC_FAILED);
  const int program = program_of(tag, true);
  const size_t exchanges = own_exchanges();
  if (exchanges > 0) judge_program(tag, program);
  judge_requests(tag);
  if (exchanges == 2) judge_references(referee.end()[-2], referee.end()[-1], tag.bit_width == 1);
  if (tag.is_global == 0 && program == kAmbiguous && exchanges > 0) accuse("chooses between two programs");
  if (tag.bit_width == 1 && count > kMostBits && exchanges > 0) accuse("reads too many bits");
  if (result == PLC_OK) {
    if (!is_good || exchanges != 2) accuse("returns a value that it did not get");
    if (tag.bit_width == 8) accuse("decodes a width that it does not know");
    const uint32_t elements = tag.bit_width == 64 ? count / 2 : tag.shape == PLC_STRING ? 1 : count;
    expect_values(tag, elements, referee.end()[-2], referee.end()[-1], expected);
  } else if (is_good && exchanges == 2 && tag.bit_width != 8) {
    accuse("fails although it got its value");
  }
  if (memcmp(buffer, expected, buffer_bytes) != 0) accuse("stores another value, or a value of a read that failed");
}

void TransferOracle::judge_write(const TagEntry& tag, uint32_t count, uint32_t result, const uint8_t* values) {
  const bool is_good = judge_connection(result, PLC_FAILED);
  const int program = program_of(tag, true);
  const size_t exchanges = own_exchanges();
  if (exchanges > 0) judge_program(tag, program);
  judge_requests(tag);
  if (tag.is_global == 0 && program == kAmbiguous && exchanges > 0) accuse("chooses between two programs");
  if (is_hopeless_write(tag, count) && (exchanges > 0 || result == PLC_OK)) accuse("writes bits that it cannot write");
  // Of no element nothing need be said, and nothing is.
  if (result == PLC_OK && (!is_good || (exchanges < 2 && count > 0))) {
    accuse("reports a write that was not acknowledged");
  }
  if (result != PLC_OK || !is_word(tag) || exchanges == 0) return;
  const Exchange& write = referee.end()[-1];
  if (write.kind() != 0x1E01) accuse("reports a write that it did not send");
  for (size_t at = 22; at + 2 <= write.request_bytes; at += 2) {
    const uint8_t* const value = values + (at - 22);
    if (write.request[at] != value[1] || write.request[at + 1] != value[0]) accuse("writes another value");
  }
}

void TransferOracle::judge_batch(const BatchReadRequest* elements, size_t count, uint32_t result) {
  const bool is_good = judge_connection(result, PLC_NO_CONNECT);
  const size_t exchanges = own_exchanges();
  const TagEntry& first = tag_of(elements[0].address >> 16);
  if (exchanges > 0) judge_program(first, program_of(first, false));
  if (is_hopeless(elements, count) && (exchanges > 0 || result == PLC_OK)) accuse("reads a batch that cannot be right");
  if (result == PLC_OK && (!is_good || exchanges < 2)) accuse("returns values that it did not get");
  for (size_t i = 0; i < count; ++i) {
    if (elements[i].count != 1) return;  // its further values go to the elements behind it
  }
  // Each element has its name, a bit among several twice, in the frames one behind the other.
  size_t next = 0;
  const Exchange* resolve = nullptr;
  for (const Exchange& exchange : referee) {
    if (exchange.is_resolve()) resolve = &exchange;
    if (!exchange.is_read() || exchange.content != Content::kGood) continue;
    if (has_text_run(exchange, elements, next, count)) return;
    uint32_t name = 0;
    size_t at = kValues;
    const uint32_t names = names_asked(resolve->request);
    for (; name < names; ++next) {
      if (next == count) accuse("asks for more than the batch has");
      const TagEntry& tag = tag_of(elements[next].address >> 16);
      uint32_t expected = unit_at(exchange, at);
      if (tag.bit_width == 1) expected = expected >> bit_place(tag, *resolve, name, true) & 1;
      if (tag.bit_width == 32) expected |= unit_at(exchange, at + 2) << 16;
      const bool is_number = tag.bit_width != 0;
      if (is_number && elements[next].value != expected) accuse("stores another value in a batch");
      const bool is_twice = tag.bit_width == 1 && count > 1;
      name += is_twice ? 2 : 1;
      at += is_twice || tag.bit_width == 32 ? 4 : 2;
    }
    judge_references(*resolve, exchange, true);
  }
  if (result == PLC_OK && next != count) accuse("leaves out elements of a batch");
  for (; next < count; ++next) {
    if (elements[next].value != kUntouched) accuse("stores a value that no reply had");
  }
}

}  // namespace fuzz
