// The entry points of the fake library.
#include "tests/client/fake_driver.h"

#include <algorithm>
#include <cstdio>

namespace plc_client_test {
namespace {

constexpr size_t kNotedBytes = 64;

uint32_t next_code() {
  FakeDriver& fake = fake_driver();
  const size_t call = fake.calls.size() - 1;
  if (call < fake.lines.size() && !fake.lines[call].empty()) std::printf("%s\r\n", fake.lines[call].c_str());
  return call < fake.codes.size() ? fake.codes[call] : 0;
}

bool is_refused(uint32_t address) {
  constexpr unsigned kOffsetBits = 16;
  return fake_driver().refused_ids.count(address >> kOffsetBits) != 0;
}

uint32_t refuse() {
  std::printf("[PLC] guard: controller refused the names, status 0004\r\n");
  return PLC_FAILED;
}

void note(char kind, const RegRequest& request, const RegValue& value) {
  const auto* bytes = reinterpret_cast<const char*>(value.data);
  fake_driver().calls.push_back({kind, request.reg_type, request.address, value.count, {bytes, kNotedBytes}});
}

uint32_t fake_info(DriverInfo* info) {
  *info = {722, 1};
  return 0;
}

uint32_t fake_init(CommSettings*) { return 0; }

uint32_t fake_register() { return 0; }

uint32_t fake_read(RegRequest* request, RegValue* value, ConnContext* conn) {
  note('r', *request, *value);
  const uint32_t code = next_code();
  conn->socket_fd = fake_driver().lose_connection ? -1 : 5;
  if (is_refused(request->address)) return refuse();
  if (code == 0 && fake_driver().on_read) fake_driver().on_read(*request, *value);
  return code;
}

uint32_t fake_write(RegRequest* request, RegValue* value, ConnContext* conn) {
  note('w', *request, *value);
  conn->socket_fd = fake_driver().lose_connection ? -1 : 5;
  return is_refused(request->address) ? refuse() : next_code();
}

uint32_t fake_batch(BatchReadRequest* elements, int32_t count, ConnContext* conn) {
  fake_driver().calls.push_back({'b', elements[0].reg_type, elements[0].address, static_cast<uint32_t>(count), {}});
  const uint32_t code = next_code();
  conn->socket_fd = fake_driver().lose_connection ? -1 : 5;
  const auto refused = [](const BatchReadRequest& element) { return is_refused(element.address); };
  if (std::any_of(elements, elements + count, refused)) return refuse();
  if (code == 0 && fake_driver().on_batch) fake_driver().on_batch(elements, count);
  return code;
}

}  // namespace

FakeDriver& fake_driver() {
  static FakeDriver fake;
  return fake;
}

plc_client::core::DriverLibrary make_fake_library(bool is_guarded) {
  fake_driver() = {};
  plc_client::core::DriverLibrary library;
  library.is_guarded = is_guarded;
  library.driver_info = fake_info;
  library.init = fake_init;
  library.register_host = fake_register;
  library.read = fake_read;
  library.write = fake_write;
  library.read_batch = fake_batch;
  return library;
}

}  // namespace plc_client_test
