// Tests of the turns: periods, pieces, who goes first, what is skipped.
#include "tools/plc_gateway/poll/schedule.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

namespace {

using plc_gateway::GroupCounters;
using plc_gateway::Ms;
using plc_gateway::Piece;
using plc_gateway::Schedule;

struct Machine {
  Machine(const std::vector<Ms>& periods, const std::vector<size_t>& pieces_of_groups) {
    for (size_t group = 0; group < pieces_of_groups.size(); ++group) {
      for (size_t i = 0; i < pieces_of_groups[group]; ++i) pieces.push_back({group, {}});
    }
    schedule.emplace(periods, pieces, counters);
    schedule->start(0);
  }

  // One reader that takes `cost` for a piece, until the time is up: the groups of the pieces in their order.
  std::string run(Ms until, Ms cost) {
    std::string order;
    while (now < until) {
      schedule->advance(now);
      const std::optional<size_t> piece = schedule->next(now);
      if (!piece) {
        now = std::min(until, *schedule->next_turn());
        continue;
      }
      order += static_cast<char>('a' + pieces[*piece].group);
      now += cost;
      schedule->done(*piece, now);
    }
    return order;
  }

  std::vector<GroupCounters> counters;
  std::vector<Piece> pieces;
  std::optional<Schedule> schedule;
  Ms now = 0;
};

TEST(Schedule, Start_HasTheFirstTurnsOnePeriodLater) {
  Machine machine({100, 250}, {1, 1});
  machine.schedule->advance(99);
  EXPECT_FALSE(machine.schedule->next(99));
  EXPECT_EQ(machine.schedule->next_turn(), 100);
  EXPECT_EQ(machine.run(502, 1), "aabaaab");
}

TEST(Schedule, SlowGroupOfManyPieces_DelaysAFastOneByOnePieceAtMost) {
  Machine machine({10, 100}, {1, 20});
  // The slow group's poll begins at 100; each piece takes 4, and the fast one has its turn every 10.
  EXPECT_EQ(machine.run(150, 4).substr(9), "abbababbababb");
  EXPECT_EQ(machine.counters[0].skipped, 0U);
}

TEST(Schedule, FastGroupThatTakesAllTheTime_LeavesASlowOneOnePieceInEachOfItsPeriods) {
  Machine machine({10, 100}, {1, 3});
  const std::string order = machine.run(1000, 12);
  EXPECT_GE(std::count(order.begin(), order.end(), 'b'), 6);
  EXPECT_GE(machine.counters[1].polls, 2U);
}

TEST(Schedule, TurnDuringAPoll_IsSkippedAndCounted) {
  Machine machine({100}, {2});
  machine.schedule->advance(100);
  const std::optional<size_t> first = machine.schedule->next(100);
  ASSERT_TRUE(first);
  machine.schedule->advance(200);
  machine.schedule->advance(300);
  EXPECT_EQ(machine.counters[0].skipped, 2U);
  EXPECT_FALSE(machine.schedule->done(*first, 310));
  const std::optional<size_t> second = machine.schedule->next(310);
  ASSERT_TRUE(second);
  EXPECT_TRUE(machine.schedule->done(*second, 320));
  EXPECT_EQ(machine.counters[0].polls, 1U);
  EXPECT_EQ(machine.counters[0].last_ms, 220);
  EXPECT_EQ(machine.counters[0].longest_ms, 220);
  EXPECT_EQ(machine.schedule->next_turn(), 400);
}

TEST(Schedule, MachineThatSlept_SkipsWhatItMissedAndKeepsThePhase) {
  Machine machine({100}, {1});
  machine.schedule->advance(1050);
  EXPECT_EQ(machine.counters[0].skipped, 9U);
  EXPECT_TRUE(machine.schedule->next(1050));
  EXPECT_FALSE(machine.schedule->next(1050));
  EXPECT_EQ(machine.schedule->next_turn(), 1100);
}

TEST(Schedule, Abort_CountsPollsUnderWayAsFailedAndEndsTheTurns) {
  Machine machine({100, 100}, {1, 1});
  machine.schedule->advance(100);
  const std::optional<size_t> piece = machine.schedule->next(100);
  ASSERT_TRUE(piece);
  machine.schedule->done(*piece, 101);
  machine.schedule->abort(102);
  EXPECT_EQ(machine.counters[0].failed + machine.counters[1].failed, 1U);
  EXPECT_FALSE(machine.schedule->next(200));
  EXPECT_FALSE(machine.schedule->next_turn());
  EXPECT_FALSE(machine.schedule->done(1 - *piece, 201));
  machine.schedule->start(300);
  EXPECT_EQ(machine.schedule->next_turn(), 400);
}

TEST(Schedule, GroupWithoutVariables_HasNoTurn) {
  Machine machine({100, 50}, {1, 0});
  EXPECT_EQ(machine.schedule->next_turn(), 100);
  EXPECT_EQ(machine.run(301, 1), "aaa");
}

}  // namespace
