// What the guarded build wants inside a reply: no refusal, every name, exactly the values asked for, every program.
#include "plc_driver/driver_state.h"
#include "plc_driver/protocol/link/connection.h"
#include "tests/driver/guarded/guarded_fixture.h"

namespace plc_test::reply_content {
namespace {

constexpr const char* kTags =
    "Word,INT,,,a,b,c,0,1,0,0,,DM\n"
    "Table,INT,[0..99],,a,b,c,1,1,0,0,,DM\n"
    "Step,INT,,,a,b,c,2,0,1,4,Main\n"
    "Text,STRING,,20,a,b,c,3,1,0,0,,DM\n"
    "Quad,LINT,,,a,b,c,4,1,0,0,,DM\n"
    "Half,SINT,,,a,b,c,5,1,0,0,,DM\n"
    "Part.Bit,BOOL,,,a,b,c,6,1,0,0,,DM\n";
enum Id : uint32_t { kWordId, kTable, kStep, kText, kQuad, kHalf, kPartBit };

class GuardedContent : public GuardedTest {
 protected:
  GuardedContent() {
    use_tags(kTags);
    connect();
  }

  void answer_body(unsigned kind, const Bytes& body, unsigned status = 0) {
    answer(kind, [body, status](const Bytes& request) {
      return std::vector<Arrival>{piece(reply_to(request, body, status))};
    });
  }

  // A result, its lines, the host's buffer as it was, and the connection still there.
  void expect_kept(uint32_t result, uint32_t expected, const std::string& lines) {
    EXPECT_EQ(result, expected);
    EXPECT_EQ(take_output(), lines);
    EXPECT_TRUE(buffer_.holds_only(0x77));
    EXPECT_TRUE(socket_.is_open());
    EXPECT_EQ(socket_.connects(), 1);
    EXPECT_EQ(plc::init, 1U);
  }
};

using GuardedStatus = GuardedContent;

TEST_F(GuardedStatus, OfNames_FailsAndKeepsTheConnection) {
  answer_body(kResolve, names_body(name_record(0)), 0x0002);
  expect_kept(read(kWordId), kFailed, "[PLC] guard: controller refused the names, status 0002\r\n");
  EXPECT_EQ(take_requests().size(), 1U);
}

TEST_F(GuardedStatus, InEitherByte_IsARefusal) {
  answer_body(kResolve, names_body(name_record(0)), 0x8000);
  expect_kept(read(kWordId), kFailed, "[PLC] guard: controller refused the names, status 8000\r\n");
}

TEST_F(GuardedStatus, OfValues_Fails) {
  answer_body(kValues, from_hex("12 34"), 0x00AB);
  expect_kept(read(kWordId), kFailed, "[PLC] guard: controller refused the read, status 00AB\r\n");
}

TEST_F(GuardedStatus, OfAWrite_Fails) {
  answer_body(kWrite, {}, 1);
  expect_kept(write(kWordId, from_hex("34 12")), kFailed, "[PLC] guard: controller refused the write, status 0001\r\n");
}

TEST_F(GuardedStatus, InABatch_IsThree) {
  answer_body(kResolve, {}, 2);
  expect_kept(read_batch({element(kWordId)}), kFailed, "[PLC] guard: controller refused the names, status 0002\r\n");
  EXPECT_EQ(elements_[0].value, 0x77777777U);
}

TEST_F(GuardedStatus, WithoutABody_IsARefusalAndNotAnIncompleteReply) {
  answer_body(kValues, {}, 3);
  expect_kept(read(kWordId), kFailed, "[PLC] guard: controller refused the read, status 0003\r\n");
}

TEST_F(GuardedStatus, AskingAgain_CostsNoConnect) {
  answer_body(kResolve, names_body(name_record(0)), 2);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(read(kWordId), kFailed);
  EXPECT_EQ(socket_.connects(), 1);
}

using GuardedNames = GuardedContent;

TEST_F(GuardedNames, CutAtEveryByte_AreIncomplete) {
  const Bytes whole = names_body(name_record(0x10) + name_record(0x20));
  for (size_t length = 0; length < whole.size(); ++length) {
    answer_body(kResolve, prefix_of(whole, length));
    const std::string found = length < 27 ? "0" : "1";
    expect_kept(read(kTable, 2), kFailed, "[PLC] guard: " + found + " of 2 names resolved\r\n");
  }
  answer_body(kResolve, whole);
  EXPECT_EQ(read(kTable, 2), kOk);
}

TEST_F(GuardedNames, GroupsOfTheLastRecord_BelongToIt) {
  const Bytes whole = names_body(name_record(0x10, 3));
  for (size_t length = 27; length < whole.size(); ++length) {
    answer_body(kResolve, prefix_of(whole, length));
    expect_kept(read(kWordId), kFailed, "[PLC] guard: 0 of 1 names resolved\r\n");
  }
  answer_body(kResolve, whole);
  EXPECT_EQ(read(kWordId), kOk);
}

TEST_F(GuardedNames, MoreThanAsked_AreNoHarm) {
  answer_body(kResolve, names_body(name_record(0x10) + name_record(0x20)));
  EXPECT_EQ(read(kWordId), kOk);
}

TEST_F(GuardedNames, OfALocalVariable_AreCountedToo) {
  answer_body(kResolve, names_body({}));
  expect_kept(read(kStep), kFailed, "[PLC] guard: 0 of 1 names resolved\r\n");
}

TEST_F(GuardedNames, MissingInAWrite_NothingIsWritten) {
  answer_body(kResolve, names_body(name_record(0x10)));
  expect_kept(write(kTable, from_hex("01 00 02 00"), 2), kFailed, "[PLC] guard: 1 of 2 names resolved\r\n");
  EXPECT_EQ(take_requests().size(), 1U);
}

TEST_F(GuardedNames, MissingInABatch_AreTwo) {
  answer_body(kResolve, names_body(name_record(0x10)));
  expect_kept(read_batch({element(kWordId), element(kTable)}), kNoConnect, "[PLC] guard: 1 of 2 names resolved\r\n");
}

using GuardedValues = GuardedContent;

TEST_F(GuardedValues, OneByteMissing_Fails) {
  answer_body(kValues, from_hex("12"));
  expect_kept(read(kWordId), kFailed, "[PLC] guard: 1 bytes of values, 2 were asked for\r\nread data err!\r\n");
}

TEST_F(GuardedValues, OneByteTooMany_Fails) {
  answer_body(kValues, from_hex("12 34 00"));
  expect_kept(read(kWordId), kFailed, "[PLC] guard: 3 bytes of values, 2 were asked for\r\nread data err!\r\n");
}

TEST_F(GuardedValues, OfTheSizesAskedFor_AreCounted) {
  answer_body(kValues, Bytes(8, 0x55));
  EXPECT_EQ(read(kQuad, 2), kOk);
  answer_body(kValues, Bytes(40, 'x'));
  buffer_ = GuardedBuffer(40, 0x77);
  EXPECT_EQ(read(kText, 20), kOk);
  answer_body(kValues, Bytes(38, 'x'));
  buffer_ = GuardedBuffer(40, 0x77);
  expect_kept(read(kText, 20), kFailed, "[PLC] guard: 38 bytes of values, 40 were asked for\r\nread data err!\r\n");
}

TEST_F(GuardedValues, OfNoElement_AreNone) {
  EXPECT_EQ(read(kTable, 0), kOk);
  EXPECT_EQ(to_hex(prefix_of(data(), 5)), "00 00 00 00 77");
}

TEST_F(GuardedValues, MissingInABatch_AreTwoAndNothingIsStored) {
  answer_body(kValues, from_hex("12 34"));
  expect_kept(read_batch({element(kWordId), element(kTable)}), kNoConnect,
              "[PLC] guard: 2 bytes of values, 4 were asked for\r\n");
  EXPECT_EQ(elements_[0].value, 0x77777777U);
  EXPECT_EQ(elements_[1].value, 0x77777777U);
}

TEST_F(GuardedValues, MissingInALaterFrame_LeaveWhatTheEarlierOneStored) {
  std::vector<BatchReadRequest> elements;
  for (uint16_t i = 0; i < 36; ++i) elements.push_back(element(kTable, static_cast<uint16_t>(2 * i)));
  int frames = 0;
  answer(kValues, [&](const Bytes& request) {
    return std::vector<Arrival>{piece(++frames == 1 ? healthy_reply(request) : reply_to(request, {}))};
  });
  EXPECT_EQ(read_batch(elements), kNoConnect);
  EXPECT_EQ(elements_[17].value, 0x1234U + 17);
  EXPECT_EQ(elements_[18].value, 0x77777777U);
}

TEST_F(GuardedValues, OfTheWordAroundABit_AreCounted) {
  answer_body(kValues, from_hex("12 34 56"));
  EXPECT_EQ(write(kPartBit, {1}), kFailed);
  EXPECT_EQ(take_output(), "[PLC] guard: 3 bytes of values, 2 were asked for\r\n");
  EXPECT_TRUE(socket_.is_open());
}

// Each name of a run is asked for with the length of the run.
TEST_F(GuardedValues, BehindARunOfStrings_AreNotStoredOutOfPlace) {
  expect_kept(read_batch({element(kText, 0), element(kText, 1), element(kWordId)}), kNoConnect,
              "[PLC] guard: 8 bytes of values, 4 were asked for\r\n");
  for (const BatchReadRequest& element : elements_) EXPECT_EQ(element.value, 0x77777777U);
}

TEST_F(GuardedValues, OfARunOfStringsAtTheEnd_AreStored) {
  EXPECT_EQ(read_batch({element(kWordId), element(kText, 0), element(kText, 1)}), kOk);
  EXPECT_EQ(elements_[0].value, 0x1234U);
  EXPECT_EQ(elements_[1].value, elements_[2].value);
}

TEST_F(GuardedValues, BehindASingleString_AreStored) {
  EXPECT_EQ(read_batch({element(kText, 0), element(kText, 2), element(kWordId)}), kOk);
  EXPECT_EQ(elements_[2].value, 0x1236U);
}

TEST_F(GuardedValues, OfMoreNamesThanARequestHolds_AreNotAskedFor) {
  expect_kept(read(kTable, 600), kFailed, "");
  EXPECT_TRUE(take_requests().empty());
}

TEST_F(GuardedValues, Of8Bits_LeaveTheBufferAlone) { expect_kept(read(kHalf), kFailed, ""); }

class GuardedDirectory : public GuardedTest {
 protected:
  GuardedDirectory() { use_tags(kTags); }
};

TEST_F(GuardedDirectory, CutAtEveryByte_IsNoConnection) {
  const Bytes whole = Bytes{2} + directory_record(7, "Main") + directory_record(9, "Sub");
  // The byte behind the last name is neither name nor record.
  for (size_t length = 0; length < whole.size() - 1; ++length) {
    use_directory(prefix_of(whole, length));
    plc::localNum = 33;
    EXPECT_EQ(read(kWordId), kNoConnect) << length;
    const size_t announced = length == 0 ? 0 : 2;
    const size_t found = length < 14 ? 0 : 1;
    EXPECT_EQ(take_output(), "server ip = 127.0.0.1\r\n[PLC] guard: " + std::to_string(found) + " of " +
                                 std::to_string(announced) +
                                 " programs in the directory\r\n"
                                 "[PLC] guard: no connection without the directory of programs\r\n"
                                 "ev_plc_read init fail\r\n");
    EXPECT_EQ(plc::localNum, 33U);
    EXPECT_FALSE(socket_.is_open());
  }
  use_directory(prefix_of(whole, whole.size() - 1));
  EXPECT_EQ(read(kWordId), kOk) << output_;
  EXPECT_EQ(plc::localNum, 2U);
  EXPECT_STREQ(plc::LocalInfo[1].name, "Sub");
}

TEST_F(GuardedDirectory, NamelessRecord_NeedsItsNumber) {
  use_directory(Bytes{1, 0, 0, 2, 0});
  EXPECT_EQ(read(kWordId), kNoConnect);
  use_directory(Bytes{1, 0, 0, 2, 0, 9});
  EXPECT_EQ(read(kWordId), kOk) << output_;
  EXPECT_EQ(plc::LocalInfo[0].number, 9U);
}

TEST_F(GuardedDirectory, MoreThan50Programs_AreAllThereAndKept) {
  Bytes records;
  for (unsigned i = 0; i < 59; ++i) records = records + directory_record(static_cast<uint8_t>(i), "P");
  use_directory(Bytes{60} + records);
  EXPECT_EQ(read(kWordId), kNoConnect);
  use_directory(Bytes{60} + records + directory_record(59, "P"));
  EXPECT_EQ(read(kWordId), kOk) << output_;
  EXPECT_EQ(plc::localNum, 60U);
}

TEST_F(GuardedDirectory, NameAbove255Bytes_LosesWholeCharacters) {
  Bytes named = {0, 0, 254, 0, 9};
  for (int i = 0; i < 126; ++i) named = named + from_hex("30 42");  // three bytes in UTF-8
  use_directory(Bytes{1} + named);
  EXPECT_EQ(read(kWordId), kOk) << output_;
  std::string expected;
  for (int i = 0; i < 85; ++i) expected += "\u3042";
  EXPECT_EQ(plc::LocalInfo[0].name, expected);
}

TEST_F(GuardedDirectory, SizeWithoutAWholeUnit_StepsAsTheStoredOnesDo) {
  // Sizes 0 and 1 step over six bytes like 2, size 3 over seven.
  for (const uint8_t size : {uint8_t{0}, uint8_t{1}, uint8_t{2}, uint8_t{3}}) {
    const Bytes first = Bytes{0, 0, size, 0, 9, 0} + Bytes(size == 3 ? 1 : 0, 0);
    const Bytes whole = Bytes{2} + first + directory_record(7, "Main");
    use_directory(prefix_of(whole, whole.size() - 2));
    EXPECT_EQ(read(kWordId), kNoConnect) << unsigned{size};
    use_directory(prefix_of(whole, whole.size() - 1));
    EXPECT_EQ(read(kWordId), kOk) << unsigned{size} << output_;
    EXPECT_STREQ(plc::LocalInfo[1].name, "Main");
    plc::close_connection(&conn_);
    plc::init = 0;
  }
}

}  // namespace
}  // namespace plc_test::reply_content
