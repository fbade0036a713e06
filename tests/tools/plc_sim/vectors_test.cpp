// The vectors: every request in them is accepted by the judge, with the handles of this controller in the place of
// those in the vector, and does to the memory what the vector says.
#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <set>

#include "tests/tools/plc_sim/sim_support.h"
#include "tools/plc_sim/controller/reply.h"
#include "wire/names.h"

namespace plc_sim {
namespace {

using nlohmann::json;
using test::from_hex;
using test::to_hex;

struct RecordInVector {
  Handle handle;
  bool is_complete = false;
};

Bytes joined(const json& fields) {
  Bytes frame;
  for (const json& field : fields) {
    const Bytes part = from_hex(field.at(1).get<std::string>());
    frame.insert(frame.end(), part.begin(), part.end());
  }
  return frame;
}

uint32_t u32_at(const Bytes& bytes, size_t at) {
  uint32_t value = 0;
  for (size_t i = 0; i < 4; ++i) value = (value << 8U) | (at + i < bytes.size() ? bytes[at + i] : 0U);
  return value;
}

unsigned u16_at(const Bytes& bytes, size_t at) { return u32_at(bytes, at) >> 16U; }

void put(Bytes& bytes, size_t at, uint32_t value, size_t count) {
  for (size_t i = 0; i < count && at + i < bytes.size(); ++i) {
    bytes[at + i] = static_cast<uint8_t>(value >> (8 * (count - 1 - i)));
  }
}

// One vector played to a controller of its own.
class VectorPlay {
 public:
  explicit VectorPlay(const json& vector) : vector_(vector) {
    std::string lines;
    for (const json& line : vector.at("tag_lines")) lines += line.get<std::string>() + "\n";
    std::map<std::string, uint8_t> programs;
    for (const json& scope : vector.at("directory")) {
      const auto name = scope.at("name").get<std::string>();
      if (!name.empty()) programs[name] = scope.at("number").get<uint8_t>();
    }
    store_.declare(read_tag_text("vector", lines).tags, programs, DirectoryOrder::kFile);
    session_.directory_started = session_.directory_sent = true;
  }

  void play() {
    for (const json& exchange : vector_.at("exchanges")) {
      request_ = joined(exchange.at("request"));
      reply_ = joined(exchange.at("reply"));
      const RequestKind kind = kind_of(request_);
      if (kind == RequestKind::kResolve) {
        play_resolve();
      } else {
        play_transfer(kind);
      }
    }
  }

 private:
  Answer ask() {
    Answer answer = controller_.handle(session_, request_);
    EXPECT_THAT(answer.findings.violations, testing::IsEmpty()) << to_hex(request_);
    EXPECT_GE(answer.reply.size(), 14U);
    return answer;
  }

  void play_resolve() {
    ask();
    records_.clear();
    size_t at = 0;
    for (size_t i = 0; i < session_.names.size(); ++i) {
      records_.push_back(
          {{static_cast<uint8_t>(u32_at(reply_, at + 21) >> 24U), u32_at(reply_, at + 22)}, reply_.size() >= at + 41});
      at += 24 + 4 * (u32_at(reply_, at + 40) >> 24U);
    }
    // A host that got less than the whole reply goes on with what it has: nothing of that can be judged.
    if (!records_.empty() && !records_.back().is_complete) session_.damage = ReplyDamage::kThisReply;
  }

  const Element* element(size_t i) const {
    return i < session_.names.size() && session_.names[i].element ? &*session_.names[i].element : nullptr;
  }

  bool can_translate() const { return session_.damage == ReplyDamage::kNone && !session_.names.empty(); }

  // This controller's handle for the i-th name, cleared of its bit number where the vector's was.
  Handle translated(size_t i, const Handle& in_request) const {
    constexpr uint32_t kBitNumber = 0x0F;
    Handle handle = session_.names[i].handle;
    const uint32_t given = records_[i].handle.address;
    const bool is_flag = element(i) != nullptr && element(i)->variable->is_flag();
    const bool is_cleared = (given & kBitNumber) != 0 ? in_request.address == (given & ~kBitNumber)
                                                      : is_flag && element(i)->variable->road == BitRoad::kBit;
    if (is_cleared) handle.address &= ~kBitNumber;
    return handle;
  }

  void play_transfer(RequestKind kind) {
    if (session_.names.empty()) {
      // Without a name there is no record: hosts find nothing where the vector's reply shows a handle.
      put(request_, kind == RequestKind::kRead ? 19 : 13, 0, 1);
      put(request_, kind == RequestKind::kRead ? 22 : 18, 0, 4);
    } else if (can_translate()) {
      translate(kind);
    }
    if (kind == RequestKind::kRead) {
      play_read();
      return;
    }
    ask();
    if (kind == RequestKind::kWrite && can_translate() && element(0) != nullptr) expect_written();
  }

  void translate(RequestKind kind) {
    const Handle& own = session_.names.front().handle;
    if (kind == RequestKind::kRead) {
      for (size_t i = 0; i < session_.names.size(); ++i) {
        const size_t at = wire::kReadHeadBytes + i * wire::kReferenceBytes;
        const Handle handle = translated(i, {0, u32_at(request_, at + 4)});
        put(request_, at + 1, handle.area, 1);
        put(request_, at + 4, handle.address, 4);
      }
    } else if (kind == RequestKind::kWrite) {
      put(request_, 13, own.area, 1);
      put(request_, 18, own.address, 4);
      translate_word_given_back();
    } else if (kind == RequestKind::kMaskedWrite) {
      put(request_, 14, own.area, 1);
      put(request_, 15, own.address, 4);
      translate_mask();
    } else {
      const size_t area_at = request_.size() == 16 ? 13 : request_.size() == 15 ? 12 : 11;
      if (request_[area_at] == records_.front().handle.area) put(request_, area_at, own.area, 1);
      put(request_, area_at + 1, own.address, 2);
    }
  }

  // The bit lies elsewhere in this controller's word: it is turned over where the vector turns it over.
  void translate_word_given_back() {
    if (element(0) == nullptr || !element(0)->variable->is_flag() || request_.size() != 24) return;
    const Place& place = element(0)->place;
    unsigned word = store_.memory().word(place.bank, place.part, place.word);
    if (u16_at(request_, 22) != word_in_vector_) word ^= 1U << place.bit;
    put(request_, 22, word, 2);
  }

  void translate_mask() {
    if (request_.size() != wire::kMaskedWriteBytes || element(0) == nullptr) return;
    const unsigned mask = 1U << element(0)->place.bit;
    put(request_, 20, request_[19] == 1 ? mask : 0xFFFFU - mask, 2);
  }

  // The memory gets the vector's values first, so that the reply must carry them.
  void play_read() {
    word_in_vector_ = reply_.size() >= 16 ? u16_at(reply_, reply_.size() - 2) : 0;
    size_t at = wire::kReplyHeadBytes;
    bool is_comparable = can_translate();
    std::set<uint64_t> handles;
    for (size_t i = 0; is_comparable && i < session_.names.size(); ++i) {
      const unsigned size = request_[wire::kReadHeadBytes + i * wire::kReferenceBytes + 3];
      const Handle& handle = session_.names[i].handle;
      const bool is_new = handles.insert((uint64_t{handle.area} << 32U) | handle.address).second;
      const bool has_words = element(i) != nullptr && element(i)->index && !element(i)->place.second_char &&
                             !element(i)->variable->is_flag_like() && size <= element(i)->place.units;
      if (!has_words || !is_new) {
        is_comparable = false;
        break;
      }
      const Place& place = element(i)->place;
      for (unsigned u = 0; u < size; ++u, at += 2) {
        store_.memory().set_word(place.bank, place.part, place.word + u, static_cast<uint16_t>(u16_at(reply_, at)));
      }
    }
    const Answer answer = ask();
    if (is_comparable && at == reply_.size()) {
      EXPECT_EQ(to_hex(Bytes(answer.reply.begin() + 14, answer.reply.end())),
                to_hex(Bytes(reply_.begin() + 14, reply_.end())));
      ++compared;
    }
  }

  void expect_written() {
    if (element(0)->variable->is_flag_like()) return;
    Bytes expected(request_.begin() + wire::kWriteHeadBytes, request_.end());
    Bytes found;
    for (size_t i = 0; i < session_.names.size(); ++i) {
      const Place& place = element(i)->place;
      for (uint32_t u = 0; u < place.units && found.size() < expected.size(); ++u) {
        append_u16(found, store_.memory().word(place.bank, place.part, place.word + u));
      }
    }
    EXPECT_EQ(to_hex(found), to_hex(expected));
    ++compared;
  }

  const json& vector_;
  VariableStore store_;
  Controller controller_{store_};
  Session session_;
  Bytes request_;
  Bytes reply_;
  std::vector<RecordInVector> records_;
  unsigned word_in_vector_ = 0;

 public:
  static inline unsigned compared = 0;
};

std::vector<json> all_vectors() {
  std::vector<json> vectors;
  for (const auto& entry : std::filesystem::directory_iterator(PLC_VECTORS_DIR)) {
    if (entry.path().extension() == ".json") {
      std::ifstream stream(entry.path());
      json file = json::parse(stream);
      for (json& vector : file.at("vectors")) vectors.push_back(std::move(vector));
    }
  }
  return vectors;
}

TEST(Vectors, EveryRequest_IsAcceptedAndDoesWhatItSays) {
  unsigned played = 0;
  for (const json& vector : all_vectors()) {
    if (vector.at("call").at("function") == "connect") continue;
    SCOPED_TRACE(vector.at("name").get<std::string>());
    VectorPlay(vector).play();
    ++played;
  }
  EXPECT_GE(played, 100U);
  EXPECT_GE(VectorPlay::compared, 40U) << "too few vectors were compared with the memory";
}

// A directory reply of the vectors is what this controller sends for the same programs, unread bytes apart.
TEST(Vectors, DirectoryReplies_AreThoseOfThisController) {
  unsigned compared = 0;
  for (const json& vector : all_vectors()) {
    if (vector.at("call").at("function") != "connect" || vector.at("exchanges").size() != 2) continue;
    std::vector<Program> programs;
    bool is_plain = true;
    Bytes mask;
    const json& fields = vector.at("exchanges").at(1).at("reply");
    for (const json& field : fields) {
      const auto name = field.at(0).get<std::string>();
      const Bytes bytes = from_hex(field.at(1).get<std::string>());
      mask.insert(mask.end(), bytes.size(), name == "unread" ? 0x00 : 0xFF);
      if (name == "number") {
        programs.push_back({bytes.at(0), {}});
      } else if (name == "scope_name") {
        std::u16string units;
        for (size_t i = 0; i + 1 < bytes.size(); i += 2) units += static_cast<char16_t>(u16_at(bytes, i));
        programs.back().name = utf8_from_utf16(units);
        is_plain = is_plain && utf16_from_utf8(programs.back().name) == units;
      }
      is_plain = is_plain && name.find("_cut") == std::string::npos;
    }
    for (const Program& program : programs) is_plain = is_plain && !program.name.empty();
    Bytes expected = joined(fields);
    if (!is_plain || expected.size() < 15 || expected[14] != programs.size()) continue;
    Bytes found = make_reply(joined(vector.at("exchanges").at(1).at("request")), 0, directory_body(programs));
    // The byte behind the last name may be missing in a vector.
    ASSERT_GE(found.size(), expected.size()) << vector.at("name");
    ASSERT_LE(found.size(), expected.size() + 1) << vector.at("name");
    found.resize(expected.size());
    for (size_t i = 8; i < found.size(); ++i) {
      found[i] &= mask[i];
      expected[i] &= mask[i];
    }
    std::copy(expected.begin(), expected.begin() + 8, found.begin());
    EXPECT_EQ(to_hex(found), to_hex(expected)) << vector.at("name");
    ++compared;
  }
  EXPECT_GE(compared, 1U);
}

}  // namespace
}  // namespace plc_sim
