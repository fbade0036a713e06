// The guarded exchange under everything that can come, judged: whichever way the controller answers, each transfer's
// result, values, requests and connection must be those that the exchanges allow.
#include <cerrno>
#include <cstring>
#include <string>

#include "driver_under_fuzz.h"
#include "exchange_referee.h"
#include "plc_driver/driver_state.h"
#include "scripted_controller.h"
#include "scripted_link.h"
#include "transfer_oracle.h"

namespace {

using fuzz::TransferOracle;

constexpr size_t kMostElements = 100;
constexpr size_t kMostTransfers = 3;
constexpr size_t kBesideBytes = 8;
constexpr uint8_t kNumberOfTheFile = 7;

std::string all_tags() {
  constexpr const char* kTypes[] = {"BOOL", "SINT", "INT", "DINT", "LINT", "REAL", "DATE", "STRING"};
  constexpr const char* kRanges[] = {"", "[0..9]", "[1..4_2..7]", "[0..2_0..3_0..4]"};
  constexpr const char* kScopes[] = {"1,0,0,", "0,1,7,MAIN", "0,1,7,MAIN2", "0,1,7,SUB"};
  constexpr const char* kDevices[] = {",EM", ",DM", ",MR", ""};
  constexpr const char* kNames[] = {"V", "S.v", "A[1].v"};
  std::string text;
  for (const char* type : kTypes) {
    for (const char* range : kRanges) {
      for (const char* scope : kScopes) {
        for (const char* device : kDevices) {
          for (const char* name : kNames) {
            const char* const length = std::string(type) == "STRING" ? "20" : "";
            text += std::string(name) + "," + type + "," + range + "," + length + ",a,b,c,7," + scope + device + "\n";
          }
        }
      }
    }
  }
  return text;
}

uint32_t choose_count(fuzz::Input* input) {
  const uint8_t choice = input->byte();
  return choice < 0xF0 ? 1 + choice % 8 : input->word() % 600;
}

// Filled, with bytes before it that belong to nobody.
uint8_t* fill_buffer(size_t bytes) {
  uint8_t* const all = fuzz::host_buffer(kBesideBytes + bytes);
  memset(all, TransferOracle::kFill, kBesideBytes + bytes);
  return all + kBesideBytes;
}

void check_beside(const uint8_t* buffer) {
  for (size_t i = 1; i <= kBesideBytes; ++i) {
    if (buffer[-static_cast<ptrdiff_t>(i)] != TransferOracle::kFill) fuzz::accuse("stores beside the host's buffer");
  }
}

void read_single(fuzz::Input* input, fuzz::Directory* directory) {
  const uint32_t id = input->word() % fuzz::known_tags();
  const TagEntry& tag = fuzz::tag_of(id);
  RegRequest request = {0, 0, 0, id << 16 | input->byte()};
  const uint32_t count = choose_count(input);
  const size_t bytes = fuzz::read_buffer_bytes(tag, count);
  uint8_t* const data = fill_buffer(bytes);
  RegValue value = {count, data};
  TransferOracle oracle(directory);
  const uint32_t result = ev_plc_read(&request, &value, fuzz::context());
  check_beside(data);
  oracle.judge_read(tag, count, result, data, bytes);
}

void write_single(fuzz::Input* input, fuzz::Directory* directory) {
  const uint32_t id = input->word() % fuzz::known_tags();
  const TagEntry& tag = fuzz::tag_of(id);
  RegRequest request = {0, 0, 0, id << 16 | input->byte()};
  const uint32_t count = choose_count(input);
  const size_t bytes = fuzz::write_buffer_bytes(tag, count);
  uint8_t* const data = fill_buffer(bytes);
  for (size_t i = 0; i < bytes; ++i) data[i] = static_cast<uint8_t>(i + 1);
  data[0] = input->byte();
  uint8_t before[4096];
  memcpy(before, data, bytes);
  RegValue value = {count, data};
  TransferOracle oracle(directory);
  const uint32_t result = ev_plc_write(&request, &value, fuzz::context());
  check_beside(data);
  oracle.judge_write(tag, count, result, before);
}

// Mostly few, and steps within one variable.
size_t choose_elements(fuzz::Input* input, BatchReadRequest* elements) {
  const uint8_t choice = input->byte();
  const size_t count = choice < 0xE8 ? 1 + choice % 6 : 1 + input->byte() % kMostElements;
  uint32_t id = input->word() % fuzz::known_tags();
  uint16_t offset = 0;
  for (size_t i = 0; i < count; ++i) {
    const uint8_t step = input->byte();
    if (step > 0xC0) id = input->word() % fuzz::known_tags();
    offset = static_cast<uint16_t>(offset + step % 4);
    elements[i].address = id << 16 | offset;
    elements[i].count = step >= 0xF0 ? static_cast<uint16_t>(step % 4) : uint16_t{1};
    elements[i].value = TransferOracle::kUntouched;
  }
  return count;
}

void read_batch(fuzz::Input* input, fuzz::Directory* directory) {
  BatchReadRequest given[kMostElements] = {};
  const size_t count = choose_elements(input, given);
  const size_t bytes = count * sizeof(BatchReadRequest);
  auto* const elements = reinterpret_cast<BatchReadRequest*>(fill_buffer(bytes));
  memcpy(elements, given, bytes);
  TransferOracle oracle(directory);
  const uint32_t result = ev_OMRON_plc_read(elements, static_cast<int32_t>(count), fuzz::context());
  check_beside(reinterpret_cast<const uint8_t*>(elements));
  oracle.judge_batch(elements, count, result);
  // A batch stores the program's number into the record; the next run begins with that of the file.
  for (size_t i = 0; i < count; ++i) {
    const_cast<TagEntry&>(fuzz::tag_of(given[i].address >> 16)).local_index = kNumberOfTheFile;
  }
}

// As a good transfer leaves the driver, or as one that failed does.
void begin_run(fuzz::Input* input, fuzz::Directory* directory) {
  const uint8_t choice = input->byte();
  const bool is_connected = choice % 2 == 0;
  directory->choose(input->byte());
  fuzz::scripted_link.begin_run(int64_t{1000000000} * (choice % 3) + 999999000 - 333 * (choice / 16));
  fuzz::scripted_link.reply_wait_s = choice / 2 % 8 == 7 ? UINT32_MAX : choice / 2 % 4;
  fuzz::referee.begin_run(is_connected);
  ConnContext* const conn = fuzz::context();
  conn->recv_timeout_s = fuzz::scripted_link.reply_wait_s;
  conn->socket_fd = is_connected ? fuzz::ScriptedLink::kSocket : -1;
  FD_ZERO(&plc::stored_sockets);
  if (is_connected) FD_SET(fuzz::ScriptedLink::kSocket, &plc::stored_sockets);
  plc::init = is_connected ? 1 : 0;
  plc::sid = choice >= 0xF0 ? 0xFFFE : 100;
  plc::string_id = 0;
  plc::localNum = 0;
  for (size_t i = 0; i < directory->count; ++i) {
    plc::LocalRecord& record = plc::LocalInfo[plc::localNum++];
    record.number = directory->programs[i].number;
    strcpy(record.name, directory->programs[i].name);
  }
}

// What waits before the transfer, and what a connect would come to.
void prepare(uint8_t choice, fuzz::Input* input) {
  constexpr fuzz::ConnectEvent kOthers[] = {fuzz::ConnectEvent::kLater,        fuzz::ConnectEvent::kTooLate,
                                            fuzz::ConnectEvent::kRefusedLater, fuzz::ConnectEvent::kRefusedAtOnce,
                                            fuzz::ConnectEvent::kWaitFails,    fuzz::ConnectEvent::kNoSocket};
  constexpr size_t kOtherCount = sizeof kOthers / sizeof kOthers[0];
  fuzz::scripted_link.connect_event = choice % 32 < kOtherCount ? kOthers[choice % 32] : fuzz::ConnectEvent::kAtOnce;
  if (!fuzz::referee.is_open() || choice < 0x80) return;
  if (choice >= 0xF8) {
    fuzz::scripted_link.add_end(fuzz::scripted_link.now_ns(), choice % 2 == 0 ? 0 : ECONNRESET);
  } else {
    fuzz::controller_leaves(choice >= 0xF0 ? size_t{input->word()} + choice % 2 * 65535 : input->byte());
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzz::start_driver(all_tags());
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t length) {
  fuzz::Input input(bytes, length);
  fuzz::Directory directory;
  begin_run(&input, &directory);
  fuzz::controller_follows(&input);
  for (size_t i = 0; i < kMostTransfers && (i == 0 || !input.empty()); ++i) {
    const uint8_t choice = input.byte();
    prepare(input.byte(), &input);
    switch (choice % 4) {
      case 2:
        write_single(&input, &directory);
        break;
      case 3:
        read_batch(&input, &directory);
        break;
      default:
        read_single(&input, &directory);
        break;
    }
  }
  fuzz::scripted_link.end_run();
  return 0;
}
