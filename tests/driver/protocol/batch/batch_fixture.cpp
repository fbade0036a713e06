// The fixture of the batch tests.
#include "tests/driver/protocol/batch/batch_fixture.h"

namespace plc_test {

Bytes resolve_many(size_t names, uint8_t bit_number) {
  constexpr size_t kStep = 24;
  Bytes reply(names == 0 ? 41 : kStep * (names - 1) + 41);
  for (size_t i = 0; i < names; ++i) {
    const size_t at = kStep * i;
    reply[at + 21] = static_cast<uint8_t>(0x80 + i);
    reply[at + 23] = static_cast<uint8_t>(i);
    reply[at + 24] = 0xD4;
    reply[at + 25] = static_cast<uint8_t>(0xE0 + bit_number);
    reply[at + 30] = bit_number;
  }
  return reply;
}

Bytes value_reply(const Bytes& values) { return Bytes(14) + values; }

uint32_t BatchTest::read(const std::vector<BatchElement>& elements) {
  count_ = elements.size();
  batch_ = GuardedBuffer(count_ * sizeof(BatchReadRequest));
  for (size_t i = 0; i < count_; ++i) {
    BatchReadRequest& request = batch()[i];
    request.area = i == 0 ? kArea : 99;  // the first one's is used
    request.reg_type = static_cast<uint8_t>(elements[i].id >> 16);
    request.address = elements[i].id << 16 | elements[i].element;
    request.count = elements[i].count;
    request.value = kUntouched;
  }
  return ev_OMRON_plc_read(batch(), static_cast<int32_t>(count_), &conn_);
}

std::vector<BatchElement> BatchTest::consecutive(uint32_t id, uint32_t first, uint32_t count) {
  std::vector<BatchElement> elements;
  for (uint32_t i = 0; i < count; ++i) elements.push_back({id, first + i});
  return elements;
}

std::vector<BatchElement> BatchTest::repeated(uint32_t id, uint32_t count) {
  return std::vector<BatchElement>(count, BatchElement{id});
}

std::vector<uint32_t> BatchTest::values() const {
  std::vector<uint32_t> all;
  for (size_t i = 0; i < count_; ++i) all.push_back(batch()[i].value);
  return all;
}

std::vector<std::string> BatchTest::names_of(size_t request) const { return names_in(peer_.requests().at(request)); }

void BatchTest::answer_frame(size_t names, std::string_view value_hex, uint8_t bit_number) {
  answer_frame(names, from_hex(value_hex), bit_number);
}

void BatchTest::answer_frame(size_t names, const Bytes& values, uint8_t bit_number) {
  peer_.answer(resolve_many(names, bit_number));
  peer_.answer(value_reply(values));
}

}  // namespace plc_test
