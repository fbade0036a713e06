// Calls that the contract carries out wrongly whatever the controller answers: the guarded build carries them out right
// or refuses them before anything is sent.
#include "tests/driver/guarded/guarded_fixture.h"

namespace plc_test::refused_calls {
namespace {

constexpr const char* kTags =
    "Word,INT,,,a,b,c,0,1,0,0,,DM\n"                         // 0
    "Table,INT,[0..99],,a,b,c,1,1,0,0,,DM\n"                 // 1
    "Small,SINT,,,a,b,c,2,1,0,0,,DM\n"                       // 2
    "Quad,LINT,,,a,b,c,3,1,0,0,,DM\n"                        // 3
    "Bits,BOOL,[0..15],,a,b,c,4,1,0,0,,DM\n"                 // 4
    "EmBits,BOOL,[0..15],,a,b,c,5,1,0,0,,EM\n"               // 5
    "EmBit,BOOL,,,a,b,c,6,1,0,0,,EM\n"                       // 6
    "Bit,BOOL,,,a,b,c,7,1,0,0,,MR\n"                         // 7
    "Part.Bit,BOOL,,,a,b,c,8,1,0,0,,DM\n"                    // 8
    "Part[1].Bit,BOOL,,,a,b,c,9,1,0,0,,DM\n"                 // 9
    "Part.Bits,BOOL,[0..15],,a,b,c,10,1,0,0,,DM\n"           // 10
    "Part.Cube,BOOL,[0..1_0..1_0..1],,a,b,c,11,1,0,0,,DM\n"  // 11
    "Grid,BOOL,[0..3_0..3],,a,b,c,12,1,0,0,,DM\n"            // 12
    "Step,INT,,,a,b,c,13,0,1,4,Main\n"                       // 13
    "Count,INT,,,a,b,c,14,0,1,4,Main\n"                      // 14
    "Other,INT,,,a,b,c,15,0,1,4,Second\n"                    // 15
    "Deep,INT,,,a,b,c,16,0,1,4,Main2\n"                      // 16
    "Named,INT,,,a,b,c,17,1,0,4,Main\n"                      // 17: a global one's program is not looked at
    "Named2,INT,,,a,b,c,18,1,0,4,Main2\n"                    // 18
    "Numbered,INT,,,a,b,c,19,0,1,5,Main\n"                   // 19
    "EmGrid,BOOL,[0..3_0..3],,a,b,c,20,1,0,0,,EM\n"          // 20
    "EmCube,BOOL,[0..1_0..1_0..1],,a,b,c,21,1,0,0,,EM\n";    // 21
enum Id : uint32_t {
  kWordId,
  kTable,
  kSmall,
  kQuad,
  kBits,
  kEmBits,
  kEmBit,
  kBit,
  kPartBit,
  kPartElementBit,
  kPartBits,
  kPartCube,
  kGrid,
  kStep,
  kCount,
  kOther,
  kDeep,
  kNamed,
  kNamed2,
  kNumbered,
  kEmGrid,
  kEmCube
};

class RefusedCalls : public GuardedTest {
 protected:
  RefusedCalls() { use_tags(kTags); }

  // Connected, with these programs.
  void connect_with(uint8_t count, const Bytes& records) {
    use_directory(Bytes{count} + records);
    connect();
  }

  void expect_refused(uint32_t result, const std::string& reason) {
    EXPECT_EQ(result, kFailed);
    EXPECT_EQ(take_output(), "[PLC] guard: " + reason + "\r\n");
    EXPECT_TRUE(take_requests().empty());
    EXPECT_TRUE(socket_.is_open());
    EXPECT_TRUE(buffer_.holds_only(0x77));
  }

  void expect_refused_batch(const std::vector<BatchReadRequest>& elements, const std::string& reason) {
    expect_refused(read_batch(elements), reason);
    for (const BatchReadRequest& element : elements_) EXPECT_EQ(element.value, 0x77777777U);
  }

  // The number of the program in the first request since the last look.
  uint8_t program_asked() {
    const std::vector<Bytes> requests = take_requests();
    return requests.empty() ? uint8_t{0xFF} : requests[0].at(17);
  }
};

using BatchLimits = RefusedCalls;

constexpr const char* kScopes = "batch over several programs or scopes";
constexpr const char* kWidths = "batch with an 8-bit or 64-bit variable";
constexpr const char* kEm = "batch with a BOOL array in EM memory";
constexpr const char* kBoolCounts = "batch of several elements with a BOOL count above 1";

TEST_F(BatchLimits, GlobalAndLocal_AreRefused) {
  connect();
  expect_refused_batch({element(kWordId), element(kStep)}, kScopes);
  expect_refused_batch({element(kStep), element(kStep), element(kWordId)}, kScopes);
}

TEST_F(BatchLimits, GlobalAndLocalUnderOneName_AreRefused) {
  connect();
  expect_refused_batch({element(kStep), element(kNamed)}, kScopes);
  expect_refused_batch({element(kNamed), element(kStep)}, kScopes);
}

TEST_F(BatchLimits, GlobalUnderTwoNames_AreRead) {
  connect();
  EXPECT_EQ(read_batch({element(kNamed), element(kNamed2), element(kWordId)}), kOk) << output_;
}

TEST_F(BatchLimits, OneProgramUnderTwoNumbersOfTheFile_IsRefusedUnlessTheControllerHasIt) {
  connect();
  expect_refused_batch({element(kStep), element(kNumbered)}, kScopes);
}

TEST_F(BatchLimits, OneProgramUnderTwoNumbersOfTheFile_IsReadByTheControllersOwn) {
  connect_with(1, directory_record(7, "Main"));
  EXPECT_EQ(read_batch({element(kStep), element(kNumbered)}), kOk) << output_;
  EXPECT_EQ(program_asked(), 7);
}

TEST_F(BatchLimits, TwoPrograms_AreRefused) {
  connect_with(2, directory_record(7, "Main") + directory_record(9, "Second"));
  expect_refused_batch({element(kStep), element(kOther)}, kScopes);
}

TEST_F(BatchLimits, TwoProgramsUnderOneNumber_AreRefused) {
  connect();
  expect_refused_batch({element(kStep), element(kOther)}, kScopes);
}

TEST_F(BatchLimits, OneProgram_IsRead) {
  connect_with(2, directory_record(7, "Main") + directory_record(9, "Second"));
  EXPECT_EQ(read_batch({element(kStep), element(kCount)}), kOk) << output_;
  EXPECT_EQ(program_asked(), 7);
}

TEST_F(BatchLimits, Of8And64Bits_AreRefused) {
  connect();
  expect_refused_batch({element(kSmall)}, kWidths);
  expect_refused_batch({element(kQuad)}, kWidths);
  expect_refused_batch({element(kWordId), element(kQuad, 0)}, kWidths);
}

TEST_F(BatchLimits, EmBoolArray_IsRefusedAlsoAlone) {
  connect();
  for (const uint32_t id : {kEmBits, kEmGrid, kEmCube}) expect_refused_batch({element(id)}, kEm);
  expect_refused_batch({element(kWordId), element(kEmBits, 3)}, kEm);
}

TEST_F(BatchLimits, EmBool_IsRead) {
  connect();
  EXPECT_EQ(read_batch({element(kEmBit), element(kWordId)}), kOk) << output_;
}

TEST_F(BatchLimits, BoolCountAbove1_IsRefusedAmongSeveral) {
  connect();
  expect_refused_batch({element(kBits, 0, 2), element(kWordId)}, kBoolCounts);
  expect_refused_batch({element(kWordId), element(kBits, 0, 16)}, kBoolCounts);
}

TEST_F(BatchLimits, BoolCountAbove1_IsReadAlone) {
  connect();
  EXPECT_EQ(read_batch({element(kBits, 0, 3)}), kOk) << output_;
}

TEST_F(BatchLimits, BoolCountOf1_IsReadAmongSeveral) {
  connect();
  EXPECT_EQ(read_batch({element(kBits, 1), element(kBits, 3), element(kWordId)}), kOk) << output_;
}

TEST_F(BatchLimits, UnknownId_KeepsItsOwnLine) {
  connect();
  EXPECT_EQ(read_batch({element(kQuad), element(99)}), kFailed);
  EXPECT_EQ(take_output().substr(0, 48), "[PLC] tag id 99 is not exist in this tag list PL");
}

TEST_F(BatchLimits, IndexedIdWithoutARecord_FailsWithItsFrame) {
  use_tags(
      "Word,INT,,,a,b,c,0,1,0,0,,DM\n"
      "First,INT,[0..9],,a,b,c,262144,1,0,0,\n"
      "Second,INT,[0..9],,a,b,c,270336,1,0,0,\n");
  connect();
  BatchReadRequest missing = element(2);
  missing.reg_type = 4;
  for (const std::vector<BatchReadRequest>& batch :
       {std::vector<BatchReadRequest>{missing}, {missing, element(0)}, {element(0), missing}}) {
    EXPECT_EQ(read_batch(batch), kFailed);
    EXPECT_EQ(take_output(), "Index out of range!\r\n");
    EXPECT_TRUE(take_requests().empty());
    EXPECT_TRUE(socket_.is_open());
    for (const BatchReadRequest& left : elements_) EXPECT_EQ(left.value, 0x77777777U);
  }
}

using BatchShares = RefusedCalls;

// Elements two apart do not merge, so that each is a slot of its own.
std::vector<BatchReadRequest> apart(uint16_t count, BatchReadRequest like) {
  std::vector<BatchReadRequest> elements(count, like);
  for (uint16_t i = 0; i < count; ++i) {
    elements[i].address = uint32_t{kTable} << 16U | 2U * i % 100U | (i >= 50 ? 1U : 0U);
  }
  return elements;
}

TEST_F(BatchShares, EveryCount_IsReadToTheLastElement) {
  for (uint16_t count = 1; count <= 100; ++count) {
    connect();
    const auto shares = static_cast<size_t>(count / 35 + 1);
    const size_t share = count / shares;
    ASSERT_EQ(read_batch(apart(count, element(kTable))), kOk) << count;
    EXPECT_EQ(take_requests().size(), 2 * ((count + share - 1) / share)) << count;
    for (uint16_t i = 0; i < count; ++i) {
      EXPECT_EQ(elements_[i].value, 0x1234U + i % share) << count << " element " << i;
    }
  }
}

TEST_F(BatchShares, LeftOverElementOfCount0_Fails) {
  connect();
  std::vector<BatchReadRequest> elements = apart(37, element(kTable));
  elements.back().count = 0;
  EXPECT_EQ(read_batch(elements), kFailed);
  EXPECT_TRUE(take_requests().empty());
}

using ProgramChoice = RefusedCalls;

TEST_F(ProgramChoice, ExactName_WinsOverItsBeginning) {
  connect_with(3, directory_record(5, "") + directory_record(7, "Main") + directory_record(9, "Main2"));
  EXPECT_EQ(read(kDeep), kOk);
  EXPECT_EQ(program_asked(), 9);
  EXPECT_EQ(write(kDeep, from_hex("01 00")), kOk);
  EXPECT_EQ(program_asked(), 9);
}

TEST_F(ProgramChoice, OneBeginning_IsTaken) {
  connect_with(2, directory_record(7, "Main") + directory_record(9, "Second"));
  EXPECT_EQ(read(kDeep), kOk);
  EXPECT_EQ(program_asked(), 7);
  EXPECT_EQ(write(kDeep, from_hex("01 00")), kOk);
  EXPECT_EQ(program_asked(), 7);
}

TEST_F(ProgramChoice, TwoBeginnings_AreRefused) {
  connect_with(2, directory_record(7, "Main") + directory_record(9, "Ma"));
  expect_refused(read(kDeep), "program of the variable is ambiguous");
  expect_refused(write(kDeep, from_hex("01 00")), "program of the variable is ambiguous");
}

TEST_F(ProgramChoice, NoBeginning_LeavesTheNumberOfTheFile) {
  connect_with(1, directory_record(9, "Second"));
  EXPECT_EQ(read(kDeep), kOk);
  EXPECT_EQ(program_asked(), 4);
}

TEST_F(ProgramChoice, GlobalVariable_NeedsNone) {
  connect_with(3, directory_record(7, "") + directory_record(9, "") + directory_record(11, "Ma"));
  for (const uint32_t id : {kWordId, kNamed, kNamed2}) {
    EXPECT_EQ(read(id), kOk);
    EXPECT_EQ(write(id, from_hex("01 00")), kOk);
  }
}

using BitWriteLimits = RefusedCalls;

constexpr const char* kInsideWords = "write of several bits inside words or in EM memory";
constexpr const char* kManyBits = "write of more than 8 bits of an array";

TEST_F(BitWriteLimits, SeveralBitsInsideWords_AreRefused) {
  connect();
  for (const uint32_t id : {kPartBit, kPartElementBit, kPartBits, kPartCube}) {
    expect_refused(write(id, {1}, 2), kInsideWords);
  }
}

TEST_F(BitWriteLimits, SeveralBitsInEm_AreRefused) {
  connect();
  expect_refused(write(kEmBits, {1}, 2), kInsideWords);
  expect_refused(write(kEmBit, {1}, 2), kInsideWords);
}

TEST_F(BitWriteLimits, OneBitInsideWordsOrInEm_IsWritten) {
  connect();
  for (const uint32_t id : {kPartBit, kPartBits, kPartCube, kEmBits, kEmBit}) {
    EXPECT_EQ(write(id, {1}, 1), kOk) << id << output_;
  }
}

TEST_F(BitWriteLimits, MoreThan8BitsOfAnArray_AreRefused) {
  connect();
  expect_refused(write(kBits, {0xFF, 0xFF}, 9), kManyBits);
  expect_refused(write(kGrid, {0xFF, 0xFF}, 16), kManyBits);
}

TEST_F(BitWriteLimits, EightBitsOfAnArray_AreWritten) {
  connect();
  EXPECT_EQ(write(kBits, {0xA5}, 8), kOk) << output_;
  EXPECT_EQ(take_requests().size(), 16U);
}

TEST_F(BitWriteLimits, PlainBit_IsWrittenOnceWhateverItsCount) {
  connect();
  EXPECT_EQ(write(kBit, {1}, 9), kOk) << output_;
  EXPECT_EQ(take_requests().size(), 2U);
}

}  // namespace
}  // namespace plc_test::refused_calls
