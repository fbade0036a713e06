// The fixture of the tests of the guarded build.
#include "tests/driver/guarded/guarded_fixture.h"

#include "plc_driver/driver_state.h"
#include "tests/support/captured_output.h"
#include "tests/support/fresh_driver.h"

namespace plc_test {
namespace {

constexpr uint32_t kLoopback = 0x7F000001;
constexpr uint32_t kReplyWaitS = 2;
constexpr size_t kHeadBytes = 14;

unsigned unit_at(const Bytes& bytes, size_t at) { return static_cast<unsigned>(bytes.at(at)) << 8U | bytes.at(at + 1); }

void append_unit(Bytes& bytes, unsigned unit) {
  bytes.push_back(static_cast<uint8_t>(unit >> 8U));
  bytes.push_back(static_cast<uint8_t>(unit));
}

size_t names_asked(const Bytes& request) { return unit_at(request, request.at(14) == 1 ? 22 : 16); }

}  // namespace

unsigned kind_of(const Bytes& request) { return unit_at(request, 10); }

Bytes reply_to(const Bytes& request, const Bytes& body, unsigned status) {
  const auto counted = static_cast<uint32_t>(kHeadBytes - 10 + body.size());
  Bytes reply;
  append_unit(reply, counted >> 16U);
  append_unit(reply, counted & 0xFFFFU);
  append_unit(reply, ~counted >> 16U);
  append_unit(reply, ~counted & 0xFFFFU);
  reply.insert(reply.end(), request.begin() + 8, request.begin() + 12);
  append_unit(reply, status);
  return reply + body;
}

Bytes with_byte(Bytes frame, size_t offset, uint8_t value) {
  frame.at(offset) = value;
  return frame;
}

Bytes name_record(uint8_t last_byte, uint8_t groups) {
  return from_hex("00 10 00 00  06 01 02 03") + Bytes{last_byte} + Bytes(14, 0) + Bytes{groups} +
         Bytes(4U * groups, 0xEE);
}

Bytes names_body(const Bytes& records) { return from_hex("01 00 01") + records; }

Bytes directory_record(uint8_t number, std::string_view name) {
  Bytes bytes = {0, 0, static_cast<uint8_t>(2 * name.size() + 2), 0, number};
  for (const char c : name) {
    bytes.push_back(0);
    bytes.push_back(static_cast<uint8_t>(c));
  }
  return bytes + Bytes{0};
}

GuardedTest::GuardedTest() {
  settings_.ip_address = kLoopback;
  settings_.tcp_port = 8500;
  conn_.socket_fd = -1;
  conn_.recv_timeout_s = kReplyWaitS;
  plc::localNum = 0;
  socket_.answer_each([this](const Bytes& request) { return respond(request); });
  use_tags("Word,INT,,,a,b,c,0,1,0,0,,DM\n");
}

GuardedTest::~GuardedTest() { reset_driver_state(); }

void GuardedTest::use_tags(std::string_view lines) {
  folder_.write("PLC7F000001_0.csv", lines);
  free_driver_tables();
  capture_output([&] { ev_plc_init(&settings_); });
}

void GuardedTest::answer(unsigned kind, TimedSocket::Controller answer) {
  answers_.emplace_back(kind, std::move(answer));
}

Bytes GuardedTest::healthy_reply(const Bytes& request) const {
  switch (kind_of(request)) {
    case kDirectory:
      return reply_to(request, directory_);
    case kResolve: {
      Bytes records;
      for (size_t i = 0; i < names_asked(request); ++i) {
        records = records + name_record(static_cast<uint8_t>(0x10 * (i + 1)));
      }
      return reply_to(request, names_body(records));
    }
    case kValues: {
      Bytes values;
      for (size_t at = 18; at < request.size(); at += 8) {
        for (size_t unit = 0; unit < request.at(at + 3); ++unit) {
          append_unit(values, 0x1234U + static_cast<unsigned>(values.size() / 2));
        }
      }
      return reply_to(request, values);
    }
    default:
      return reply_to(request, {});
  }
}

std::vector<Arrival> GuardedTest::respond(const Bytes& request) const {
  for (auto answer = answers_.rbegin(); answer != answers_.rend(); ++answer) {
    if (answer->first == kind_of(request)) return answer->second(request);
  }
  return {piece(healthy_reply(request))};
}

uint32_t GuardedTest::read(uint32_t id, uint32_t count, uint16_t element) {
  RegRequest request = {0, 0, 0, id << 16U | element};
  RegValue value = {count, buffer_.data()};
  uint32_t result = 0;
  output_ += capture_output([&] { result = ev_plc_read(&request, &value, &conn_); });
  EXPECT_TRUE(buffer_.guards_intact());
  return result;
}

uint32_t GuardedTest::write(uint32_t id, const Bytes& data, uint32_t count, uint16_t element) {
  Bytes values = data;
  RegRequest request = {0, 0, 0, id << 16U | element};
  RegValue value = {count, values.data()};
  uint32_t result = 0;
  output_ += capture_output([&] { result = ev_plc_write(&request, &value, &conn_); });
  return result;
}

uint32_t GuardedTest::read_batch(std::vector<BatchReadRequest> elements) {
  elements_ = std::move(elements);
  uint32_t result = 0;
  output_ += capture_output(
      [&] { result = ev_OMRON_plc_read(elements_.data(), static_cast<int32_t>(elements_.size()), &conn_); });
  return result;
}

BatchReadRequest GuardedTest::element(uint32_t id, uint16_t offset, uint16_t count) {
  BatchReadRequest element{};
  element.address = id << 16U | offset;
  element.count = count;
  element.value = 0x77777777;
  return element;
}

void GuardedTest::connect() {
  ASSERT_EQ(read(0), uint32_t{PLC_OK}) << output_;
  output_.clear();
  take_requests();
  socket_.forget_calls();
  buffer_ = GuardedBuffer(buffer_.size(), 0x77);
}

std::vector<Bytes> GuardedTest::take_requests() {
  const std::vector<Bytes>& all = socket_.requests();
  std::vector<Bytes> taken(all.begin() + static_cast<std::ptrdiff_t>(seen_requests_), all.end());
  seen_requests_ = all.size();
  return taken;
}

}  // namespace plc_test
