// What one reply can hold, and replies of any content behind an honest head.
#include <random>

#include "plc_driver/driver_state.h"
#include "tests/driver/guarded/guarded_fixture.h"

namespace plc_test::reply_limits {
namespace {

constexpr const char* kTags =
    "Word,INT,,,a,b,c,0,1,0,0,,DM\n"
    "Table,INT,[0..999],,a,b,c,1,1,0,0,,DM\n"
    "Text,STRING,,20,a,b,c,2,1,0,0,,DM\n"
    "Quad,LINT,[0..9],,a,b,c,3,1,0,0,,DM\n"
    "Part.Bit,BOOL,,,a,b,c,4,1,0,0,,DM\n"
    "Bits,BOOL,[0..99],,a,b,c,5,1,0,0,,MR\n";
enum Id : uint32_t { kWordId, kTable, kText, kQuad, kPartBit, kBits };

class NamesOfOneReply : public GuardedTest {
 protected:
  static constexpr uint32_t kMost = 169;  // 17 + 24 * 169 bytes are 4073

  NamesOfOneReply() {
    use_tags(kTags);
    connect();
    buffer_ = GuardedBuffer(2 * (kMost + 1), 0x77);
  }
};

TEST_F(NamesOfOneReply, AtMost169_AreRead) {
  EXPECT_EQ(read(kTable, kMost), kOk) << output_;
  EXPECT_EQ(take_requests().size(), 2U);
}

TEST_F(NamesOfOneReply, MoreThan169_AreIncomplete) {
  // A controller sends what one reply takes.
  answer(kResolve, [this](const Bytes& request) {
    Bytes body = healthy_reply(request);
    body.erase(body.begin(), body.begin() + 14);
    body.resize(4096 - 14);
    return std::vector<Arrival>{piece(reply_to(request, body))};
  });
  EXPECT_EQ(read(kTable, kMost + 1), kFailed);
  EXPECT_EQ(take_output(), "[PLC] guard: 169 of 170 names resolved\r\n");
  EXPECT_EQ(take_requests().size(), 1U);
  EXPECT_TRUE(buffer_.holds_only(0x77));
  EXPECT_TRUE(socket_.is_open());
}

class HostileContent : public GuardedTest {
 protected:
  HostileContent() {
    use_tags(kTags);
    connect();
    for (const unsigned kind : {kResolve, kValues, kWrite}) {
      answer(kind, [this](const Bytes& request) {
        const Bytes content = random_content(request);
        return std::vector<Arrival>{piece(reply_to(request, content, random_() % 8 == 0 ? 0x0102 : 0))};
      });
    }
  }

  // What the controller would send, some bytes of it changed or its length; or bytes of any length.
  Bytes random_content(const Bytes& request) {
    Bytes content = healthy_reply(request);
    content.erase(content.begin(), content.begin() + 14);
    const auto kind = random_() % 8;
    if (kind == 0) {
      content = Bytes(random_() % 4083);
    } else if (kind == 1) {
      content.resize(content.size() * (random_() % 20) / 10);
    }
    const size_t changes = kind == 0 ? content.size() : random_() % 4;
    for (size_t i = 0; i < changes && !content.empty(); ++i) {
      content[random_() % content.size()] = static_cast<uint8_t>(random_());
    }
    return content;
  }

  std::mt19937 random_{20261121};
};

// The buffer's guard bytes are looked at behind every read.
TEST_F(HostileContent, OfEveryReply_StaysWithinTheHostsMemory) {
  int good = 0;
  for (int round = 0; round < 500 && !HasFailure(); ++round) {
    SCOPED_TRACE(round);
    buffer_ = GuardedBuffer(40, 0x77);
    const auto count = static_cast<uint32_t>(1 + random_() % 10);
    const uint32_t results[] = {
        read(kTable, count), read(kText, 20), read(kQuad, 2), read(kBits, count), write(kTable, Bytes(20, 1), count),
        write(kPartBit, {1})};
    for (const uint32_t result : results) {
      EXPECT_TRUE(result == kOk || result == kFailed) << result;
      good += result == kOk ? 1 : 0;
    }
    std::vector<BatchReadRequest> elements;
    for (uint32_t i = 0; i < 5 * count; ++i) {
      elements.push_back(element(i % 3 == 0 ? kWordId : kTable, static_cast<uint16_t>(random_() % 90)));
    }
    const uint32_t result = read_batch(elements);
    EXPECT_TRUE(result == kOk || result == kFailed || result == kNoConnect) << result;
    EXPECT_EQ(plc::init, 1U);
    EXPECT_EQ(socket_.connects(), 1) << "no content costs the connection";
    take_output();
  }
  EXPECT_GT(good, 500) << "the content is not so hostile that nothing is read";
}

}  // namespace
}  // namespace plc_test::reply_limits
