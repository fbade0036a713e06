// The fixture of fault_fixture.h.
#include "tests/driver/faults/fault_fixture.h"

#include <sys/select.h>

#include "plc_driver/driver_state.h"
#include "tests/support/driver_build.h"
#include "tests/support/fresh_driver.h"

namespace plc_test {
namespace {

// A word, a bit inside a word, and a group of indexed words.
constexpr const char* kTags =
    "Word,INT,,,,,,0,1,0,0,,DM\n"
    "Part.Bit,BOOL,,,,,,1,1,0,0,,EM\n"
    "Second,INT,,,,,,2,1,0,0,,DM\n"
    "First,INT,,,,,,262144,1,0,0,\n"
    "Next,INT,,,,,,262145,1,0,0,\n";

}  // namespace

const char* name_of(Transfer transfer) {
  switch (transfer) {
    case Transfer::kRead:
      return "read";
    case Transfer::kWrite:
      return "write";
    case Transfer::kBitWrite:
      return "bit write";
    case Transfer::kBatch:
      return "batch";
  }
  return "";
}

FaultFixture::FaultFixture() {
  folder_.write("PLC7F000001_0.csv", kTags);
  settings_.ip_address = kLoopbackAddress;
  settings_.tcp_port = peer_.port();
  conn_.recv_timeout_s = reply_wait_s();
  start_over();
}

FaultFixture::~FaultFixture() {
  close_stored_sockets();
  reset_driver_state();
}

void FaultFixture::start_over() {
  close_stored_sockets();
  reset_driver_state();
  conn_.socket_fd = -1;
  conn_.delay_ms = 0;
  value_ = 0;
  EXPECT_EQ(capture_output([&] { ev_plc_init(&settings_); }), "ev_plc_init ok\r\n");
}

uint32_t FaultFixture::run_plainly(Transfer transfer) {
  uint8_t data[8] = {1, 0};
  RegValue value = {1, data};
  RegRequest request = {};
  request.address = transfer == Transfer::kBitWrite ? 1U << 16 : 0;
  if (transfer == Transfer::kBatch) {
    BatchReadRequest elements[2] = {};
    elements[0].count = elements[1].count = 1;
    elements[1].address = 2U << 16;
    const uint32_t result = ev_OMRON_plc_read(elements, 2, &conn_);
    value_ = elements[0].value;
    return result;
  }
  if (transfer != Transfer::kRead) return ev_plc_write(&request, &value, &conn_);
  const uint32_t result = ev_plc_read(&request, &value, &conn_);
  value_ = data[0] | static_cast<uint32_t>(data[1]) << 8;
  return result;
}

Seen FaultFixture::run(Transfer transfer, const Fault* faults, size_t count) {
  Seen seen;
  CapturedOutput captured;
  {
    WatchedCalls watched(faults, count);
    seen.result = run_plainly(transfer);
    seen.calls = watched.end();
  }
  seen.lines = captured.take();
  return seen;
}

Seen FaultFixture::run(Transfer transfer) { return run(transfer, nullptr, 0); }

Seen FaultFixture::run(Transfer transfer, const Fault& fault) { return run(transfer, &fault, 1); }

long FaultFixture::free_tables() {
  WatchedCalls watched;
  free_driver_tables();
  return -watched.end().live_blocks;
}

int FaultFixture::stored_sockets() {
  int count = 0;
  for (int descriptor = 0; descriptor < FD_SETSIZE; ++descriptor) {
    count += FD_ISSET(descriptor, &plc::stored_sockets) ? 1 : 0;
  }
  return count;
}

}  // namespace plc_test
