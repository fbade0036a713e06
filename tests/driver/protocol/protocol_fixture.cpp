// The fixture of the protocol tests.
#include "tests/driver/protocol/protocol_fixture.h"

#include <cstdlib>
#include <cstring>

#include "plc_driver/driver_state.h"
#include "plc_driver/tags/tag_table.h"
#include "tests/support/captured_output.h"
#include "tests/support/fresh_driver.h"
#include "tests/support/loopback.h"

namespace plc_test {
namespace {

constexpr char kTableName[] = "PLC7F000001_1.csv";

TagEntry* copy_records(const std::vector<TagEntry>& records) {
  auto* copy = static_cast<TagEntry*>(calloc(records.size() + 1, sizeof(TagEntry)));
  std::copy(records.begin(), records.end(), copy);
  return copy;
}

}  // namespace

TagEntry make_tag(const char* name, uint8_t bit_width) {
  TagEntry tag{};
  strncpy(tag.name, name, sizeof tag.name - 1);
  tag.type_code = kIntCode;
  tag.bit_width = bit_width;
  tag.is_global = 1;
  tag.name_kind = 1;
  tag.device_kind = kDm;
  return tag;
}

TagEntry make_bit(const char* name, uint8_t device_kind) {
  TagEntry tag = make_tag(name, 1);
  tag.type_code = kBoolCode;
  tag.device_kind = device_kind;
  return tag;
}

TagEntry make_string(const char* name, int32_t length) {
  TagEntry tag = make_tag(name, 0);
  tag.type_code = kStringCode;
  tag.shape = PLC_STRING;
  tag.string_length = length;
  return tag;
}

TagEntry with_ranges(TagEntry tag, Range dim1) {
  tag.shape = PLC_ARRAY1;
  tag.dim1_low = dim1.low;
  tag.dim1_high = dim1.high;
  return tag;
}

TagEntry with_ranges(TagEntry tag, Range dim2, Range dim1) {
  tag = with_ranges(tag, dim1);
  tag.shape = PLC_ARRAY2;
  tag.dim2_low = dim2.low;
  tag.dim2_high = dim2.high;
  return tag;
}

TagEntry with_ranges(TagEntry tag, Range dim3, Range dim2, Range dim1) {
  tag = with_ranges(tag, dim2, dim1);
  tag.shape = PLC_ARRAY3;
  tag.dim3_low = dim3.low;
  tag.dim3_high = dim3.high;
  return tag;
}

TagEntry local(TagEntry tag) {
  tag.is_global = 0;
  tag.local_index = kMainNumber;
  strcpy(tag.scope_name, "MAIN");
  return tag;
}

Bytes resolve_reply(uint16_t bit_number) {
  Bytes reply = from_hex(
      "00 00 00 1F FF FF FF E0 00 00 0C 28 00 00 00 00 00 01 00 00 00 A1 B2 C3 D4 E5 00 00 00 00 00 00"
      "00 00 00 00 00 00 00 00 00");
  reply[29] = static_cast<uint8_t>(bit_number >> 8);
  reply[30] = static_cast<uint8_t>(bit_number);
  return reply;
}

Bytes acknowledgment() { return from_hex("00 00 00 04 FF FF FF FB 00 01 1E 01 00 00"); }

Bytes value_reply(std::string_view values) {
  return from_hex("00 00 00 06 FF FF FF F9 00 01 1E 09 00 00") + from_hex(values);
}

std::vector<std::string> names_in(const Bytes& request) {
  const bool is_local = request.at(14) == 1;
  const size_t count_at = is_local ? 22 : 16;
  const size_t count = static_cast<size_t>(request.at(count_at)) << 8 | request.at(count_at + 1);
  std::vector<std::string> names;
  for (size_t at = count_at + 2; names.size() < count && at < request.size();) {
    const size_t units = static_cast<size_t>(request.at(at)) << 8 | request.at(at + 1);
    std::string name;
    for (size_t i = 0; i < units; ++i) name += static_cast<char>(request.at(at + 3 + 2 * i));
    names.push_back(name);
    at += 2 + 2 * units;
  }
  return names;
}

ProtocolTest::ProtocolTest() {
  settings_.ip_address = kLoopbackAddress;
  settings_.tcp_port = 8500;
  free_driver_tables();
  capture_output([this] { ev_plc_init(&settings_); });
  plc::init = 1;
  plc::localNum = 0;
  conn_.socket_fd = ScriptedSocket::kDescriptor;
  conn_.recv_timeout_s = 1;
  request_.area = kArea;
}

ProtocolTest::~ProtocolTest() { reset_driver_state(); }

void ProtocolTest::add_table(const std::vector<TagEntry>& tags, IndexedTagEntry* groups, uint32_t max_indexed_id) {
  const uint32_t counts[2] = {static_cast<uint32_t>(tags.size()), max_indexed_id};
  free_driver_tables();
  ASSERT_EQ(add_tagtable(&plc::g_plc_tags, kTableName, copy_records(tags), groups, counts), 1);
}

void ProtocolTest::use_tags(const std::vector<TagEntry>& tags) { add_table(tags, nullptr, 0); }

void ProtocolTest::use_tags(const std::vector<TagEntry>& tags, const std::vector<TagEntry>& group) {
  auto* groups = static_cast<IndexedTagEntry*>(calloc(2, sizeof(IndexedTagEntry)));
  groups[0].count = static_cast<uint8_t>(group.size());
  groups[0].entries = copy_records(group);
  add_table(tags, groups, group.back().tag_id);
}

TagTable& ProtocolTest::loaded_table() { return *get_tagtable(&plc::g_plc_tags, kTableName); }

void ProtocolTest::use_directory(std::initializer_list<Program> programs) {
  plc::localNum = 0;
  for (const Program& program : programs) {
    plc::LocalRecord& record = plc::LocalInfo[plc::localNum++];
    record.number = program.number;
    strcpy(record.name, program.name);
  }
}

RegValue* ProtocolTest::value(std::string_view data, uint32_t count) {
  const Bytes bytes = from_hex(data);
  return value(bytes, count, bytes.size());
}

RegValue* ProtocolTest::value(const Bytes& data, uint32_t count, size_t size) {
  data_ = GuardedBuffer(size);
  std::copy(data.begin(), data.end(), data_.data());
  value_ = {count, data_.data()};
  return &value_;
}

RegRequest* ProtocolTest::element(uint32_t index, uint32_t id) {
  request_.reg_type = static_cast<uint8_t>(id >> 16);
  request_.address = id << 16 | index;
  return &request_;
}

uint32_t ProtocolTest::write(uint32_t id, uint32_t index, std::string_view data, uint32_t count) {
  return ev_plc_write(element(index, id), value(data, count), &conn_);
}

void ProtocolTest::answer_writes(int writes, uint16_t bit_number) {
  for (int i = 0; i < writes; ++i) {
    peer_.answer(resolve_reply(bit_number));
    peer_.answer(acknowledgment());
  }
}

std::vector<std::string> ProtocolTest::sent() const {
  std::vector<std::string> texts;
  for (const Bytes& request : peer_.requests()) texts.push_back(to_hex(request));
  return texts;
}

std::vector<std::string> ProtocolTest::frames(std::initializer_list<std::string_view> literals) {
  std::vector<std::string> texts;
  for (const std::string_view literal : literals) texts.push_back(to_hex(from_hex(literal)));
  return texts;
}

std::vector<std::string> ProtocolTest::sent_names() const {
  std::vector<std::string> names;
  for (const Bytes& request : peer_.requests()) {
    if (request.at(10) != 0x0C) continue;
    for (const std::string& name : names_in(request)) names.push_back(name);
  }
  return names;
}

}  // namespace plc_test
