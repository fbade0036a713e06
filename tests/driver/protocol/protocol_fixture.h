// What the protocol tests start from: a driver that counts as connected to a scripted socket, and records that they
// make themselves.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "plc_driver.h"
#include "tests/support/bytes.h"
#include "tests/support/driver_build.h"
#include "tests/support/guarded_buffer.h"
#include "tests/support/peer/scripted_socket.h"

namespace plc_test {

// Type codes that the tests use.
constexpr uint16_t kBoolCode = 0xC1;
constexpr uint16_t kIntCode = 0xC3;
constexpr uint16_t kStringCode = 0xD0;

// Device codes of the tag file.
constexpr uint8_t kDm = 6;
constexpr uint8_t kMr = 17;
constexpr uint8_t kLr = 18;
constexpr uint8_t kEm = 23;
constexpr uint8_t kNoDevice = 30;

constexpr uint8_t kMainNumber = 7;  // program number of the local records below

// A global scalar on DM; tests change what they are about.
TagEntry make_tag(const char* name, uint8_t bit_width);
TagEntry make_bit(const char* name, uint8_t device_kind);
TagEntry make_string(const char* name, int32_t length);

// The same record as an array: ranges [low1..high1], then with the further ones to the left of it.
struct Range {
  int32_t low;
  int32_t high;
};
TagEntry with_ranges(TagEntry tag, Range dim1);
TagEntry with_ranges(TagEntry tag, Range dim2, Range dim1);
TagEntry with_ranges(TagEntry tag, Range dim3, Range dim2, Range dim1);

// The same record as one of program MAIN.
TagEntry local(TagEntry tag);

// A program of the controller's directory.
struct Program {
  uint32_t number;
  const char* name;
};

// Replies with one name's handle A1 B2C3D4E5 and this bit number, and an acknowledgment of 14 bytes.
Bytes resolve_reply(uint16_t bit_number = 0);
Bytes acknowledgment();
// A reply of these values behind its head.
Bytes value_reply(std::string_view values);

class ProtocolTest : public testing::Test {
 protected:
  static constexpr uint16_t kArea = 1;

  ProtocolTest();
  ~ProtocolTest() override;

  // Makes these records the plain records of area 1, as if its file had been loaded.
  void use_tags(const std::vector<TagEntry>& tags);
  // The same with one group of indexed records, whose ids are their tag_id; the largest may not be addressed.
  void use_tags(const std::vector<TagEntry>& tags, const std::vector<TagEntry>& group);

  // The table of use_tags as the driver holds it, and the record behind a plain id.
  TagTable& loaded_table();
  TagEntry& loaded_tag(uint32_t id) { return loaded_table().entries[id]; }

  void use_directory(std::initializer_list<Program> programs);

  // The host's value record: these bytes, and a count of elements.
  RegValue* value(std::string_view data, uint32_t count);
  // The same with room for size bytes.
  RegValue* value(const Bytes& data, uint32_t count, size_t size);
  std::string host_data() const { return to_hex(data_.bytes()); }

  // The request of element index of a record; a plain id.
  RegRequest* element(uint32_t index, uint32_t id = 0);

  uint32_t write(uint32_t id, uint32_t index, std::string_view data, uint32_t count);

  // Answers the requests of one write or of several.
  void answer_writes(int writes = 1, uint16_t bit_number = 0);

  // The frames that were sent, as text, and the same texts from literals.
  std::vector<std::string> sent() const;
  static std::vector<std::string> frames(std::initializer_list<std::string_view> literals);
  // The names of the resolve requests in order.
  std::vector<std::string> sent_names() const;

  ScriptedSocket peer_;
  CommSettings settings_{};
  ConnContext conn_{};
  RegRequest request_{};
  RegValue value_{};
  GuardedBuffer data_{0};

 private:
  void add_table(const std::vector<TagEntry>& tags, IndexedTagEntry* groups, uint32_t max_indexed_id);
};

// The names of a resolve request that has one block, decoded from their units (ASCII).
std::vector<std::string> names_in(const Bytes& resolve_request);

}  // namespace plc_test
