// The fixture of driver_fixture.h.
#include "tests/support/driver_fixture.h"

#include <algorithm>
#include <csignal>
#include <cstring>

#include "tests/support/driver_build.h"
#include "tests/support/fresh_driver.h"

namespace plc_test {
Bytes resolve_reply(const std::vector<ResolvedName>& names) {
  constexpr size_t kNameBytes = 24;
  constexpr size_t kHandleOffset = 21;
  constexpr size_t kBitNumberOffset = 30;
  constexpr size_t kTailBytes = 17;  // up to and with the last name's step byte
  Bytes reply(kNameBytes * names.size() + kTailBytes);
  for (size_t i = 0; i < names.size(); ++i) {
    uint8_t* at = reply.data() + kNameBytes * i;
    at[kHandleOffset] = names[i].lead;
    std::memcpy(at + kHandleOffset + 1, names[i].reference, sizeof names[i].reference);
    at[kBitNumberOffset] = names[i].bit_number;
  }
  return reply;
}

Bytes value_reply(const Bytes& values) { return Bytes(14) + values; }

std::vector<PeerStep> empty_directory() { return directory_of(0, {}); }

std::vector<PeerStep> directory_of(uint8_t count, const Bytes& records) {
  return {answer(Bytes(14)), answer(Bytes(14) + Bytes{count} + records)};
}

std::vector<PeerStep> operator+(std::vector<PeerStep> first, const std::vector<PeerStep>& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

DriverFixture::DriverFixture() {
  wrapped_calls().reset();
  reset_driver_state();
  // Tests that go past ev_plc_init send on broken connections too; what it does about the signal has tests of its own.
  signal(SIGPIPE, SIG_IGN);
  settings_.ip_address = kLoopbackAddress;
  conn_.socket_fd = -1;
  conn_.recv_timeout_s = reply_wait_s();
}

DriverFixture::~DriverFixture() {
  wrapped_calls().reset();
  close_stored_sockets();
  reset_driver_state();
}

void DriverFixture::write_tags(uint16_t area, std::string_view lines) {
  folder_.write("PLC7F000001_" + std::to_string(area) + ".csv", lines);
}

void DriverFixture::start(std::vector<PeerStep> script) {
  free_driver_tables();
  peer_ = std::make_unique<ScriptedPeer>(std::move(script));
  settings_.tcp_port = peer_->port();
  EXPECT_EQ(captured([&] { return ev_plc_init(&settings_); }), 0U);
  output_.clear();
}

void DriverFixture::start_connected(const std::vector<PeerStep>& script) { start(empty_directory() + script); }

std::vector<Bytes> DriverFixture::finish(size_t skipped) {
  std::vector<Bytes> requests = peer_->finish();
  EXPECT_EQ(peer_->unused_steps(), 0U) << "steps of the script that no request used";
  EXPECT_EQ(requests.size(), peer_->script_length()) << "requests against the steps of the script";
  requests.erase(requests.begin(), requests.begin() + static_cast<std::ptrdiff_t>(std::min(skipped, requests.size())));
  return requests;
}

uint32_t DriverFixture::read(RegRequest* request, RegValue* value) {
  return captured([&] { return ev_plc_read(request, value, &conn_); });
}

uint32_t DriverFixture::write(RegRequest* request, RegValue* value) {
  return captured([&] { return ev_plc_write(request, value, &conn_); });
}

uint32_t DriverFixture::read_batch(BatchReadRequest* elements, int32_t count) {
  return captured([&] { return ev_OMRON_plc_read(elements, count, &conn_); });
}

uint32_t DriverFixture::read_id(uint32_t id, uint16_t offset, uint32_t count, uint8_t* data) {
  RegRequest request = request_for(id, offset);
  RegValue value = {count, data};
  return read(&request, &value);
}

RegRequest request_for(uint32_t id, uint16_t offset) {
  RegRequest request{};
  request.reg_type = static_cast<uint8_t>(id >> 16);
  request.address = id << 16 | offset;
  return request;
}

}  // namespace plc_test
