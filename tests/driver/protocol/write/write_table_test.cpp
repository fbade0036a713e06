// Runs every combination of the table in docs/write_functions.md and compares what goes out with what the table says.
#include <algorithm>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

#include "plc_driver/driver_state.h"
#include "plc_driver/protocol/writes/write_dispatch.h"
#include "plc_driver/protocol/writes/write_functions.h"
#include "tests/driver/protocol/protocol_fixture.h"
#include "tests/support/captured_output.h"

namespace plc_test {
namespace {

// One row of the table; the cells as they stand, without the marks of code.
struct Row {
  std::vector<std::string> widths;
  std::string shape;
  std::vector<std::string> kinds;
  std::vector<std::string> devices;
  std::string scope;
  std::string function;
  std::string frames;
  std::string value_bytes;
};

std::vector<std::string> split(const std::string& text, const std::string& mark) {
  std::vector<std::string> parts;
  for (size_t at = 0; at <= text.size();) {
    const size_t end = std::min(text.find(mark, at), text.size());
    parts.push_back(text.substr(at, end - at));
    at = end + mark.size();
  }
  return parts;
}

std::string cell_text(std::string cell) {
  cell.erase(std::remove(cell.begin(), cell.end(), '`'), cell.end());
  const size_t first = cell.find_first_not_of(' ');
  return first == std::string::npos ? "" : cell.substr(first, cell.find_last_not_of(' ') - first + 1);
}

std::vector<Row> read_table() {
  std::ifstream page(PLC_DOCS_FOLDER "/write_functions.md");
  std::vector<Row> rows;
  bool inside = false;
  for (std::string line; std::getline(page, line);) {
    if (line.rfind("| Bit width |", 0) == 0) {
      inside = true;
      std::getline(page, line);
    } else if (inside && line.rfind("| ", 0) == 0) {
      std::vector<std::string> cells = split(line, "|");
      for (std::string& cell : cells) cell = cell_text(cell);
      if (cells.size() != 10) continue;
      rows.push_back({split(cells[1], ", "), cells[2], split(cells[3], ", "), split(cells[4], ", "), cells[5], cells[6],
                      cells[7], cells[8]});
    } else {
      inside = false;
    }
  }
  return rows;
}

bool is_em_array(const TagEntry& tag) {
  return tag.type_code == kBoolCode && tag.dim1_high != 0 && tag.device_kind == kEm;
}

bool lists(const std::vector<std::string>& cell, const std::string& wanted) {
  return cell[0] == "any" || cell[0] == "others" || std::find(cell.begin(), cell.end(), wanted) != cell.end();
}

bool lists_device(const std::vector<std::string>& cell, const TagEntry& tag) {
  static const std::map<uint8_t, std::string> names = {{kDm, "DM"}, {kMr, "MR"}, {kLr, "LR"}};
  if (cell[0] == "EM array") return is_em_array(tag);
  const auto name = names.find(tag.device_kind);
  return lists(cell, name == names.end() ? "another" : name->second);
}

bool serves(const Row& row, const TagEntry& tag) {
  return lists(row.widths, std::to_string(tag.bit_width)) && lists({row.shape}, std::to_string(tag.shape)) &&
         lists(row.kinds, std::to_string(tag.name_kind)) && lists_device(row.devices, tag) &&
         (row.scope == "both" || row.scope == (tag.is_global == 1 ? "global" : "local"));
}

// What is given to a write function.
struct Call {
  RegRequest* request;
  RegValue* value;
  ConnContext* conn;
  TagEntry* tag;
};

using Function = int32_t (*)(const Call& c);

template <PlcWrite write>
int32_t call(const Call& c) {
  return write(c.request, c.value, c.conn, c.tag);
}
template <PlcWriteLocal write>
int32_t call(const Call& c) {
  return write(c.request, c.value, c.conn, c.tag, c.tag->name_kind, c.tag->local_index);
}
template <PlcWrite2 write>
int32_t call(const Call& c) {
  return write(c.request, c.value, c.conn, static_cast<uint32_t>(c.tag->dim1_high), c.tag);
}
template <PlcWrite2Local write>
int32_t call(const Call& c) {
  return write(c.request, c.value, c.conn, static_cast<uint32_t>(c.tag->dim1_high), c.tag, c.tag->name_kind,
               c.tag->local_index);
}
template <PlcWrite3 write>
int32_t call(const Call& c) {
  return write(c.request, c.value, c.conn, *c.tag);
}
template <PlcWriteBitLocal write>
int32_t call(const Call& c) {
  return write(c.request, c.value, c.conn, c.tag, c.tag->local_index);
}

// The name under which the dispatcher writes a structure bit.
std::string structure_bit_name(const TagEntry& tag) {
  if (!is_em_array(tag)) return tag.name;
  if (tag.shape == PLC_ARRAY1) return "B[#1]";
  if (tag.shape == PLC_ARRAY2) return "B[#0,#1]";
  return tag.shape == PLC_ARRAY3 ? "B[#0,#0,#1]" : "";
}

const std::map<std::string, Function> kFunctions = {
    {"ev_plc_write_string", call<ev_plc_write_string>},
    {"ev_plc_write_string_local", call<ev_plc_write_string_local>},
    {"ev_plc_write_words", call<ev_plc_write_words>},
    {"ev_plc_write_words_local", call<ev_plc_write_words_local>},
    {"ev_plc_write_dwords", call<ev_plc_write_dwords>},
    {"ev_plc_write_dwords_local", call<ev_plc_write_dwords_local>},
    {"ev_plc_write_4words", call<ev_plc_write_4words>},
    {"ev_plc_write_4words_local", call<ev_plc_write_4words_local>},
    {"ev_plc_write_array_words", call<ev_plc_write_array_words>},
    {"ev_plc_write_array_words_local", call<ev_plc_write_array_words_local>},
    {"ev_plc_write_array_dwords", call<ev_plc_write_array_dwords>},
    {"ev_plc_write_array_dwords_local", call<ev_plc_write_array_dwords_local>},
    {"ev_plc_write_array_4words", call<ev_plc_write_array_4words>},
    {"ev_plc_write_array_4words_local", call<ev_plc_write_array_4words_local>},
    {"ev_plc_write_array2_words", call<ev_plc_write_array2_words>},
    {"ev_plc_write_array2_words_local", call<ev_plc_write_array2_words_local>},
    {"ev_plc_write_array2_dwords", call<ev_plc_write_array2_dwords>},
    {"ev_plc_write_array2_dwords_local", call<ev_plc_write_array2_dwords_local>},
    {"ev_plc_write_array2_4words", call<ev_plc_write_array2_4words>},
    {"ev_plc_write_array2_4words_local", call<ev_plc_write_array2_4words_local>},
    {"ev_plc_write_array3_words", call<ev_plc_write_array3_words>},
    {"ev_plc_write_array3_words_local", call<ev_plc_write_array3_words_local>},
    {"ev_plc_write_array3_dwords", call<ev_plc_write_array3_dwords>},
    {"ev_plc_write_array3_dwords_local", call<ev_plc_write_array3_dwords_local>},
    {"ev_plc_write_array3_4words", call<ev_plc_write_array3_4words>},
    {"ev_plc_write_array3_4words_local", call<ev_plc_write_array3_4words_local>},
    {"ev_plc_write_bits", call<ev_plc_write_bits>},
    {"ev_plc_write_bits_local", call<ev_plc_write_bits_local>},
    {"ev_plc_write_bits_struct",
     [](const Call& c) {
       return ev_plc_write_bits_struct(c.request, c.value, c.conn, structure_bit_name(*c.tag).c_str(),
                                       c.tag->device_kind);
     }},
    {"ev_plc_write_bits_struct_local",
     [](const Call& c) {
       return ev_plc_write_bits_struct_local(c.request, c.value, c.conn, structure_bit_name(*c.tag).c_str(),
                                             c.tag->local_index);
     }},
    {"ev_plc_write_array_struct_bits",
     [](const Call& c) {
       return ev_plc_write_array_struct_bits(c.request, c.value, c.conn, c.tag, c.tag->device_kind);
     }},
    {"ev_plc_write_array_struct_bits_local", call<ev_plc_write_array_struct_bits_local>},
    {"ev_plc_write_array_bits",
     [](const Call& c) {
       return ev_plc_write_array_bits(c.request, c.value, c.conn, c.tag, c.tag->aux_flag, c.tag->name_kind);
     }},
    {"ev_plc_write_array_bits_local", call<ev_plc_write_array_bits_local>},
    {"ev_plc_write_array2_bits",
     [](const Call& c) {
       return ev_plc_write_array2_bits(c.request, c.value, c.conn, static_cast<uint32_t>(c.tag->dim1_high), c.tag,
                                       c.tag->aux_flag, c.tag->name_kind, 0);
     }},
    {"ev_plc_write_array2_bits_local", call<ev_plc_write_array2_bits_local>},
    {"ev_plc_write_array3_bits", call<ev_plc_write_array3_bits>},
    {"ev_plc_write_array3_bits_local", call<ev_plc_write_array3_bits_local>},
};

// The table's word for a request.
std::string kind_of(const Bytes& request) {
  if (request[10] == 0x0C && request[11] == 0x28) return "resolve";
  if (request[10] == 0x1E && request[11] == 0x01) return "write";
  if (request[10] == 0x1E && request[11] == 0x09) return "value";
  if (request[10] == 0x1E && request[11] == 0x03) return "mask";
  if (request[10] != 0x32 && request[10] != 0x33) return "unknown";
  return request[13] == 0xA1 ? "set" : "device set";
}

class WriteTable : public ProtocolTest {
 protected:
  // One bit in the guarded build, which refuses to write several inside words.
  static uint32_t elements_of(const TagEntry& tag) { return tag.bit_width <= 8 ? by_build(2U, 1U) : 2; }

  WriteTable() {
    peer_.answer_each([](const Bytes& request) {
      const std::string kind = kind_of(request);
      if (kind == "resolve") return reply_with(resolve_reply(3));
      return reply_with(kind == "value" ? value_reply("00 01") : acknowledgment());
    });
  }

  // Runs one write of element 1 and one more; returns its result and leaves its requests.
  int32_t run(const TagEntry& record, const std::function<int32_t(const Call&)>& write_function) {
    peer_.forget();
    plc::sid = 0;
    TagEntry tag = record;
    RegValue* values = value("01 00 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F", elements_of(record));
    int32_t result = 0;
    capture_output([&] { result = write_function({element(1), values, &conn_, &tag}); });
    return result;
  }

  void check(const Row& row, const TagEntry& tag) {
    const int32_t dispatched = run(tag, [](const Call& c) { return dispatch_write(c); });
    const std::vector<Bytes> requests = peer_.requests();
    if (row.frames == "nothing") {
      EXPECT_EQ("none: " + std::to_string(dispatched), row.function);
      EXPECT_TRUE(requests.empty());
      return;
    }
    EXPECT_EQ(dispatched, 0);
    ASSERT_EQ(kFunctions.count(row.function), 1U) << row.function;
    EXPECT_EQ(run(tag, kFunctions.at(row.function)), 0);
    EXPECT_EQ(requests, peer_.requests());
    expect_frames(row, tag, requests);
    expect_value_bytes(row, tag, requests.back());
  }

 private:
  static int32_t dispatch_write(const Call& c) { return plc::dispatch_write(c.request, c.value, c.conn, c.tag); }

  static void expect_frames(const Row& row, const TagEntry& tag, const std::vector<Bytes>& requests) {
    const std::string each = "each: ";
    const bool repeated = row.frames.rfind(each, 0) == 0;
    const std::vector<std::string> once = split(repeated ? row.frames.substr(each.size()) : row.frames, ", ");
    std::vector<std::string> expected = once;
    if (repeated && elements_of(tag) == 2) expected.insert(expected.end(), once.begin(), once.end());
    std::vector<std::string> kinds;
    for (const Bytes& request : requests) kinds.push_back(kind_of(request));
    EXPECT_EQ(kinds, expected);
  }

  // The values of the last request against the order "b1 b0 ..." of the host's bytes 01 00 02 03 04 ...
  void expect_value_bytes(const Row& row, const TagEntry& tag, const Bytes& request) {
    if (row.value_bytes.empty()) return;
    if (row.value_bytes == "word") {
      EXPECT_EQ(request.size(), 24U);
      return;
    }
    Bytes order;
    for (const std::string& name : split(row.value_bytes, " ")) order.push_back(static_cast<uint8_t>(name.at(1) - '0'));
    const bool one_element = tag.shape == PLC_SCALAR || tag.bit_width == 64;
    Bytes expected;
    for (size_t i = 0; i < (one_element ? 1 : elements_of(tag)); ++i) {
      for (const uint8_t place : order) expected.push_back(data_[i * order.size() + place]);
    }
    EXPECT_EQ(to_hex(Bytes(request.begin() + 22, request.end())), to_hex(expected));
    EXPECT_EQ(request[17], expected.size() / 2);
  }
};

TEST_F(WriteTable, EveryCombination_IsServedAndTravelsAsTheTableSays) {
  const std::vector<Row> rows = read_table();
  ASSERT_GT(rows.size(), 40U);
  static constexpr uint8_t kWidths[] = {0, 1, 4, 8, 16, 32, 64, 255};
  std::vector<int> served(rows.size());
  for (const uint8_t width : kWidths) {
    for (uint32_t c = 0; c < 7 * 5 * 10 * 2 * 2 * 2; ++c) {
      static constexpr uint8_t kDevices[] = {0, 6, 7, 8, 17, 18, 23, 25, 30, 44};
      TagEntry tag = with_ranges(make_tag("B", width), {0, 3}, {0, 3}, {0, c / 1400 % 2 == 0 ? 3 : 0});
      tag.shape = c % 7;
      tag.name_kind = static_cast<uint8_t>(c / 7 % 5);
      tag.device_kind = kDevices[c / 35 % 10];
      tag.type_code = c / 350 % 2 == 0 ? kBoolCode : kIntCode;
      tag.string_length = 80;
      if (c / 700 % 2 == 0) tag = local(tag);
      const auto row = std::find_if(rows.begin(), rows.end(), [&](const Row& r) { return serves(r, tag); });
      ASSERT_NE(row, rows.end());
      ++served[static_cast<size_t>(row - rows.begin())];
      SCOPED_TRACE("width " + std::to_string(width) + ", combination " + std::to_string(c) + ", " + row->function);
      check(*row, tag);
      ASSERT_FALSE(HasFailure());
    }
  }
  EXPECT_EQ(std::count(served.begin(), served.end(), 0), 0) << "rows that nothing reaches";
}

TEST_F(WriteTable, AllNamedFunctions_StandInTheTable) {
  std::set<std::string> named;
  for (const Row& row : read_table()) named.insert(row.function);
  named.erase("none: 3");
  named.erase("none: -1");
  EXPECT_EQ(named.size(), 38U);
  EXPECT_EQ(kFunctions.size(), 38U);
  for (const auto& function : kFunctions) EXPECT_EQ(named.count(function.first), 1U) << function.first;
}

}  // namespace
}  // namespace plc_test
