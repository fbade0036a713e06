// Replays every vector of vectors/ against the driver: bytes sent, results, values, printed text.
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>

#include <nlohmann/json.hpp>

#include "plc_driver/driver_state.h"
#include "plc_driver/protocol/link/directory.h"
#include "tests/driver/protocol/protocol_fixture.h"
#include "tests/support/captured_output.h"
#include "tests/support/temp_dir.h"

namespace plc_test {
namespace {

using nlohmann::json;

// One vector; messages show its name alone.
struct Vector {
  json content;
};

void PrintTo(const Vector& vector, std::ostream* out) { *out << vector.content.at("name").get<std::string>(); }

// All vectors, ordered by file and place.
std::vector<Vector> load_vectors() {
  std::vector<std::filesystem::path> files;
  for (const auto& entry : std::filesystem::directory_iterator(PLC_VECTORS_FOLDER)) {
    if (entry.path().extension() == ".json") files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  std::vector<Vector> vectors;
  for (const auto& file : files) {
    const json content = json::parse(std::ifstream(file));
    for (const json& vector : content.at("vectors")) vectors.push_back({vector});
  }
  return vectors;
}

// The test's name: the vector's, with what a name may not hold replaced.
std::string test_name(const testing::TestParamInfo<Vector>& info) {
  std::string name;
  for (const char c : info.param.content.at("name").get<std::string>()) name += std::isalnum(c) != 0 ? c : '_';
  return name;
}

Bytes join_fields(const json& fields) {
  Bytes frame;
  for (const json& field : fields) frame = frame + from_hex(field.at(1).get<std::string>());
  return frame;
}

// The same with the fields that the driver does not look at filled with noise. The guarded build looks at the head and
// at the status behind it.
Bytes join_fields_with_noise(const json& fields, std::mt19937* random) {
  static const std::vector<std::string> kUnread = {"unread", "length", "complement", "sequence", "class", "command"};
  const size_t first_unread = by_build(size_t{0}, kReplyHeadBytes);
  Bytes frame;
  for (const json& field : fields) {
    Bytes bytes = from_hex(field.at(1).get<std::string>());
    if (std::find(kUnread.begin(), kUnread.end(), field.at(0)) != kUnread.end()) {
      for (size_t i = 0; i < bytes.size(); ++i) {
        if (frame.size() + i >= first_unread) bytes[i] = static_cast<uint8_t>((*random)());
      }
    }
    frame = frame + bytes;
  }
  return frame;
}

uint32_t number(const json& text) { return static_cast<uint32_t>(std::stoul(text.get<std::string>(), nullptr, 16)); }

class Vectors : public ProtocolTest, public testing::WithParamInterface<Vector> {
 protected:
  const json& vector() const { return GetParam().content; }
  const json& call() const { return vector().at("call"); }

  // Sets up what the vector says was there before, calls the driver and compares all that is stated.
  void replay() {
    prepare();
    const std::string printed = capture_output([this] { EXPECT_EQ(run_call(), vector().at("result")); });
    EXPECT_EQ(printed, load_line() + vector().value("printed", std::string()));
    expect_requests();
    expect_state();
  }

  void answer(const Bytes& reply) {
    if (reply.empty()) {
      peer_.answer(close_connection());
    } else {
      peer_.answer(reply_raw(reply));
    }
  }

 private:
  void prepare() {
    std::string lines;
    for (const json& line : vector().at("tag_lines")) lines += line.get<std::string>() + "\n";
    folder_.write("PLC7F000001_1.csv", lines);
    plc::sid = vector().at("sid").get<uint16_t>();
    plc::localNum = 0;
    for (const json& program : vector().at("directory")) {
      plc::LocalRecord& record = plc::LocalInfo[plc::localNum++];
      record.number = program.at("number").get<uint32_t>();
      strcpy(record.name, program.at("name").get<std::string>().c_str());
    }
  }

  std::string load_line() const {
    return call().at("function") == "connect" ? "" : "build tag table for PLC7F000001_1.csv\r\n";
  }

  uint32_t run_call() {
    const std::string function = call().at("function");
    if (function == "connect") return KV8000_get_localMSG(&conn_);
    if (function == "ev_OMRON_plc_read") return run_batch();
    request_.reg_type = call().at("reg_type").get<uint8_t>();
    request_.address = number(call().at("address"));
    RegValue* values = value(call().at("data").get<std::string>(), call().at("count").get<uint32_t>());
    return function == "ev_plc_read" ? ev_plc_read(&request_, values, &conn_) : ev_plc_write(&request_, values, &conn_);
  }

  uint32_t run_batch() {
    for (const json& element : call().at("elements")) {
      BatchReadRequest request{};
      request.area = kArea;
      request.reg_type = element.at("reg_type").get<uint8_t>();
      request.address = number(element.at("address"));
      request.count = element.at("count").get<uint16_t>();
      request.value = number(element.at("value"));
      elements_.push_back(request);
    }
    return ev_OMRON_plc_read(elements_.data(), static_cast<int32_t>(elements_.size()), &conn_);
  }

  void expect_requests() {
    std::vector<std::string> expected;
    for (const json& exchange : vector().at("exchanges")) {
      expected.push_back(to_hex(join_fields(exchange.at("request"))));
    }
    EXPECT_EQ(sent(), expected);
    EXPECT_EQ(peer_.unused_answers(), 0U);
  }

  void expect_state() {
    const bool is_connect = call().at("function") == "connect";
    const size_t steps = is_connect ? 0 : vector().at("exchanges").size();
    const uint32_t next = (vector().at("sid").get<uint32_t>() + static_cast<uint32_t>(steps)) % 65536;
    EXPECT_EQ(plc::sid, vector().value("sid_after", next));
    if (vector().contains("data_after")) {
      EXPECT_EQ(host_data(), to_hex(from_hex(vector().at("data_after").get<std::string>())));
      EXPECT_TRUE(data_.guards_intact());
      EXPECT_EQ(value_.count, vector().value("count_after", call().at("count").get<uint32_t>()));
    }
    if (vector().contains("values_after")) expect_values();
    if (vector().contains("directory_after")) expect_directory();
  }

  void expect_values() {
    const json& values = vector().at("values_after");
    ASSERT_EQ(values.size(), elements_.size());
    for (size_t i = 0; i < elements_.size(); ++i) {
      const std::string stated = values[i].get<std::string>();
      if (stated.rfind("text:", 0) != 0) {
        EXPECT_EQ(elements_[i].value, number(values[i])) << i;
        continue;
      }
      const Bytes text = from_hex(stated.substr(5));
      ASSERT_NE(elements_[i].value, 0U);
      const auto* copy = reinterpret_cast<const uint8_t*>(static_cast<uintptr_t>(elements_[i].value));
      EXPECT_EQ(to_hex(Bytes(copy, copy + text.size() + 1)), to_hex(text + Bytes{0}));
    }
  }

  void expect_directory() {
    const json& records = vector().at("directory_after");
    ASSERT_EQ(plc::localNum, records.size());
    for (size_t i = 0; i < records.size(); ++i) {
      EXPECT_EQ(plc::LocalInfo[i].number, records[i].at("number"));
      const auto* name = reinterpret_cast<const uint8_t*>(plc::LocalInfo[i].name);
      EXPECT_EQ(to_hex(Bytes(name, name + strlen(plc::LocalInfo[i].name))),
                to_hex(from_hex(records[i].at("name_utf8").get<std::string>())));
    }
  }

  TempDir folder_;
  ScopedWorkingDirectory inside_{folder_.path()};
  std::vector<BatchReadRequest> elements_;
};

TEST_P(Vectors, BytesOfTheVector_AreSentAndStored) {
  for (const json& exchange : vector().at("exchanges")) answer(join_fields(exchange.at("reply")));
  replay();
}

TEST_P(Vectors, BytesThatNobodyReads_MayHoldAnything) {
  std::mt19937 random(20261121);
  for (const json& exchange : vector().at("exchanges")) answer(join_fields_with_noise(exchange.at("reply"), &random));
  replay();
}

INSTANTIATE_TEST_SUITE_P(All, Vectors, testing::ValuesIn(load_vectors()), test_name);

}  // namespace
}  // namespace plc_test
