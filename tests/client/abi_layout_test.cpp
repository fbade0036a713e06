// What programs compile in of plc_client.h: sizes, offsets and numbers, which a library of the same soname keeps.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

#include "client/plc_client.h"

namespace {

using plc_client::Declaration;
using plc_client::Options;
using plc_client::Problem;
using plc_client::Reading;
using plc_client::State;
using plc_client::WriteResult;
using testing::ElementsAre;

// Where a member lies in its record.
template <typename Record, typename Member>
size_t At(Member Record::*member) {
  static const Record record{};
  return static_cast<size_t>(reinterpret_cast<const char*>(&(record.*member)) - reinterpret_cast<const char*>(&record));
}

#ifdef __x86_64__
TEST(ClientAbi, SizesOfTypes_AsPromised) {
  EXPECT_THAT((std::vector<size_t>{sizeof(plc_client::Value), sizeof(plc_client::Input), sizeof(plc_client::Plan),
                                   sizeof(plc_client::Controller), sizeof(plc_client::Error),
                                   sizeof(plc_client::UnknownVariable)}),
              ElementsAre(88, 80, 8, 8, 16, 40));
  EXPECT_THAT((std::vector<size_t>{sizeof(Problem), sizeof(Reading), sizeof(WriteResult), sizeof(Declaration),
                                   sizeof(Declaration::Range), sizeof(State), sizeof(Options)}),
              ElementsAre(72, 240, 152, 248, 8, 216, 224));
}

TEST(ClientAbi, MembersOfResults_LieWherePromised) {
  EXPECT_THAT((std::vector<size_t>{At(&Problem::reason), At(&Problem::text), At(&Problem::advice)}),
              ElementsAre(0, 8, 40));
  EXPECT_THAT((std::vector<size_t>{At(&Reading::name), At(&Reading::type), At(&Reading::value), At(&Reading::quality),
                                   At(&Reading::error), At(&Reading::time)}),
              ElementsAre(0, 32, 64, 152, 160, 232));
  EXPECT_THAT((std::vector<size_t>{At(&WriteResult::name), At(&WriteResult::type), At(&WriteResult::outcome),
                                   At(&WriteResult::verified), At(&WriteResult::error), At(&WriteResult::time)}),
              ElementsAre(0, 32, 64, 65, 72, 144));
}

TEST(ClientAbi, MembersOfDeclarations_LieWherePromised) {
  EXPECT_THAT((std::vector<size_t>{At(&Declaration::name), At(&Declaration::type), At(&Declaration::kind),
                                   At(&Declaration::bits), At(&Declaration::ranges), At(&Declaration::length),
                                   At(&Declaration::scope), At(&Declaration::device), At(&Declaration::file),
                                   At(&Declaration::line), At(&Declaration::area), At(&Declaration::number),
                                   At(&Declaration::unreachable)}),
              ElementsAre(0, 32, 64, 68, 72, 96, 104, 136, 168, 200, 204, 208, 216));
}

TEST(ClientAbi, MembersOfStateAndOptions_LieWherePromised) {
  EXPECT_THAT((std::vector<size_t>{At(&State::connected), At(&State::since), At(&State::last_error),
                                   At(&State::last_error_time), At(&State::connects), At(&State::calls),
                                   At(&State::exchanges), At(&State::failures), At(&State::drops)}),
              ElementsAre(0, 8, 16, 88, 96, 104, 112, 120, 208));
  EXPECT_THAT((std::vector<size_t>{At(&Options::address), At(&Options::port), At(&Options::tags), At(&Options::area),
                                   At(&Options::driver), At(&Options::reply_timeout_s), At(&Options::delay_ms),
                                   At(&Options::first_pause), At(&Options::longest_pause), At(&Options::log),
                                   At(&Options::on_state), At(&Options::profile)}),
              ElementsAre(0, 32, 40, 64, 72, 104, 108, 112, 120, 128, 160, 192));
}
#endif

TEST(ClientAbi, NumbersOfEnumerators_AsPromised) {
  using plc_client::Input;
  using plc_client::Kind;
  using plc_client::Outcome;
  using plc_client::Quality;
  using plc_client::Reason;
  using plc_client::Verify;
  EXPECT_EQ(plc_client::kReasons, 11U);
  EXPECT_THAT((std::vector<Reason>{Reason::kNone, Reason::kRefused, Reason::kIncomplete, Reason::kNoAnswer,
                                   Reason::kLost, Reason::kNoConnection, Reason::kForeign, Reason::kImpossible,
                                   Reason::kDifferent, Reason::kFailed, Reason::kNotTried}),
              ElementsAre(Reason(0), Reason(1), Reason(2), Reason(3), Reason(4), Reason(5), Reason(6), Reason(7),
                          Reason(8), Reason(9), Reason(10)));
  EXPECT_THAT((std::vector<Kind>{Kind::kNone, Kind::kBool, Kind::kSigned, Kind::kUnsigned, Kind::kWord, Kind::kReal,
                                 Kind::kText, Kind::kBytes}),
              ElementsAre(Kind(0), Kind(1), Kind(2), Kind(3), Kind(4), Kind(5), Kind(6), Kind(7)));
  EXPECT_THAT((std::vector<Quality>{Quality::kGood, Quality::kUnguarded, Quality::kBad}),
              ElementsAre(Quality(0), Quality(1), Quality(2)));
  EXPECT_THAT((std::vector<Outcome>{Outcome::kDone, Outcome::kNotDone, Outcome::kUnknown}),
              ElementsAre(Outcome(0), Outcome(1), Outcome(2)));
  EXPECT_THAT((std::vector<Verify>{Verify::kNone, Verify::kReadBack}), ElementsAre(Verify(0), Verify(1)));
  EXPECT_THAT(
      (std::vector<Input::Form>{Input::Form::kBool, Input::Form::kSigned, Input::Form::kUnsigned, Input::Form::kReal,
                                Input::Form::kText, Input::Form::kBytes, Input::Form::kList}),
      ElementsAre(Input::Form(0), Input::Form(1), Input::Form(2), Input::Form(3), Input::Form(4), Input::Form(5),
                  Input::Form(6)));
}

}  // namespace
