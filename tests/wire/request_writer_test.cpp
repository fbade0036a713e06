// The request writer against frames written by hand, and against the reader of requests.
#include "wire/request_writer.h"

#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "tests/support/bytes.h"
#include "wire/names.h"

namespace plc_sim {
namespace {

using plc_test::from_hex;
using Json = nlohmann::json;

TEST(RequestWriter, DirectoryRequests_CarryZeroAndOne) {
  EXPECT_EQ(directory_start_request(), from_hex("00 00 00 06 FF FF FF F9 00 00 0C 2C 00 00 00 00"));
  EXPECT_EQ(directory_request(), from_hex("00 00 00 06 FF FF FF F9 00 01 0C 25 00 00 00 00"));
}

TEST(RequestWriter, Resolve_NamesOfNoProgramAndOfOne) {
  EXPECT_EQ(resolve_request(0x1234, std::nullopt, {"D", "E[#2]"}),
            from_hex("00 00 00 18 FF FF FF E7 12 34 0C 28 00 01 00 00 00 02 00 01 00 44 00 05 00 45 00 5B 00 23 00 32 "
                     "00 5D"));
  EXPECT_EQ(resolve_request(0, uint8_t{7}, {"M"}),
            from_hex("00 00 00 12 FF FF FF ED 00 00 0C 28 00 01 01 01 00 07 00 00 00 00 00 01 00 01 00 4D"));
}

TEST(RequestWriter, NameBeyondUnits_HasLowSixteenBitsAndAtMost511Units) {
  EXPECT_EQ(resolve_request(0, std::nullopt, {"\xF0\x9F\x98\x80"}),
            from_hex("00 00 00 0C FF FF FF F3 00 00 0C 28 00 01 00 00 00 01 00 01 F6 00"));
  Findings findings;
  const Request request = parse_request(resolve_request(0, std::nullopt, {std::string(600, 'A')}), findings);
  EXPECT_TRUE(findings.violations.empty());
  ASSERT_EQ(request.blocks.size(), 1U);
  EXPECT_EQ(request.blocks.front().names, std::vector<std::u16string>{std::u16string(511, u'A')});
}

TEST(RequestWriter, ByteThatIsNoCharacter_IsAUnitByItself) {
  EXPECT_EQ(resolve_request(0, std::nullopt, {"\xFF"}),
            from_hex("00 00 00 0C FF FF FF F3 00 00 0C 28 00 01 00 00 00 01 00 01 00 FF"));
}

// The frame that the writer makes of the parts of a request; nothing for forms that it does not write.
std::optional<Bytes> written_again(const Bytes& frame, const Request& request) {
  switch (request.kind) {
    case RequestKind::kDirectoryStart:
      return directory_start_request();
    case RequestKind::kDirectory:
      return directory_request();
    case RequestKind::kResolve: {
      if (request.blocks.size() != 1) return std::nullopt;
      const NameBlock& block = request.blocks.front();
      std::vector<std::string> names;
      for (const std::u16string& name : block.names) names.push_back(utf8_from_utf16(name));
      return resolve_request(request.sequence, block.is_local ? std::optional(block.program) : std::nullopt, names);
    }
    case RequestKind::kRead:
      return value_request(request.sequence, request.references);
    case RequestKind::kWrite:
      return write_request(request.sequence, request.handle, request.values);
    case RequestKind::kMaskedWrite: {
      if (!request.mask) return std::nullopt;
      unsigned bit = 0;
      while (bit < 15 && ((*request.mask >> bit) & 1U) != (request.is_or_mask ? 1U : 0U)) ++bit;
      return masked_write_request(request.sequence, request.handle, bit, request.is_or_mask);
    }
    case RequestKind::kBit:
      if (!request.bit_value || frame.size() != wire::kBitRequestBytes) return std::nullopt;
      return bit_request(request.sequence, request.area, request.low_address, *request.bit_value);
    case RequestKind::kUnknown:
      break;
  }
  return std::nullopt;
}

TEST(RequestWriter, EveryVectorOfItsForms_IsWrittenTheSame) {
  std::map<RequestKind, size_t> compared;
  for (const char* name : {"directory", "resolve", "value_request", "write_bits", "write_strings", "write_words"}) {
    std::ifstream file(std::string(PLC_VECTORS_FOLDER) + "/" + name + ".json");
    const Json vectors = Json::parse(file);
    for (const Json& vector : vectors.at("vectors")) {
      for (const Json& exchange : vector.at("exchanges")) {
        if (exchange.contains("quirks")) continue;
        std::string hex;
        for (const Json& field : exchange.at("request")) hex += field.at(1).get<std::string>();
        const Bytes frame = from_hex(hex);
        Findings findings;
        const Request request = parse_request(frame, findings);
        const std::optional<Bytes> again = written_again(frame, request);
        if (!again) continue;
        EXPECT_EQ(*again, frame) << vector.at("name");
        ++compared[request.kind];
      }
    }
  }
  for (const RequestKind kind :
       {RequestKind::kDirectoryStart, RequestKind::kDirectory, RequestKind::kResolve, RequestKind::kRead,
        RequestKind::kWrite, RequestKind::kMaskedWrite, RequestKind::kBit}) {
    EXPECT_GT(compared[kind], 1U) << name_of(kind);
  }
}

}  // namespace
}  // namespace plc_sim
