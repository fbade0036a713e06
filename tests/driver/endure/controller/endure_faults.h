// What goes wrong between the controller and the host, drawn by chance for each request, reply and connect.
//
// One thing is never made: a frame that answers the request under way in its sequence number, class, command, length,
// completeness and status, and was not made for it. No driver could know. So no frame is given a number that is still
// to come (but for one that is sent at once in the place of a reply), what is older than 20000 exchanges is not
// delivered any more (numbers come round after 65536), a frame that was begun is never completed by other bytes, and no
// reply has other values in the same shape under status 0. The two directory requests have fixed numbers; their replies
// say the same each time.
#pragma once

#include <array>

#include "tests/driver/endure/controller/endure_controller.h"
#include "tests/driver/endure/referee/endure_network.h"

namespace plc_endure {

enum class Fault : uint8_t {
  kLate,
  kLateExecution,
  kLostRequest,
  kLostReply,
  kDuplicateAtOnce,
  kDuplicateLater,
  kTorn,
  kDripped,
  kOvertaken,
  kBytesBefore,
  kBytesBehind,
  kBytesBetween,
  kOldFramesBefore,
  kOldFramesBehind,
  kForeignFrameBefore,
  kForeignFrameInstead,
  kBrokenHead,
  kWrongNumber,
  kGarbage,
  kRefused,
  kStatus,
  kIncomplete,
  kTooLong,
  kEmpty,
  kCloseBefore,
  kResetBefore,
  kCloseInside,
  kResetInside,
  kCloseBehind,
  kResetBehind,
  kCut,
  kGone,
  kConnectHeldBack,
  kStall,
};
constexpr size_t kFaults = 34;
const char* name_of(Fault fault);

class Faults : public Peer {
 public:
  Faults(Network* network, Controller* controller, uint64_t seed, bool has_faults, bool is_guarded);

  ConnectFate connecting() override;
  int64_t arrived(Link& link, const Bytes& request) override;
  void serve(Link& link, const Pending& request) override;
  int64_t stall_us() override;

  // The host begins anew with its numbers: what was sent before would answer requests to come.
  void forget_replies();

  // How long the host waits for a reply: lateness is drawn around it.
  void set_wait_us(int64_t wait_us) { wait_us_ = wait_us; }
  // Things done wrong so far: as long as it stands, nothing was that the driver does not have to get over. The guarded
  // build has to get over a reply that is whole within the host's wait, late, torn or behind earlier frames.
  unsigned long trouble() const { return trouble_; }
  unsigned long survivable() const { return survivable_; }
  const std::array<unsigned long, kFaults>& counts() const { return counts_; }

 private:
  void turn_weather();
  bool is_due() { return has_faults_ && random_.below(1000) < weather_permille_; }
  void count(Fault fault, Link* link);
  int64_t any_time();
  uint16_t past_number();
  Bytes any_bytes(uint32_t most);
  Bytes old_frames(uint32_t most_frames, const Bytes& reply);
  Bytes foreign_frame(const Bytes& reply);
  enum class Joined { kNo, kToNext };
  void send(Link& link, Bytes bytes, int64_t later_us = 0, Ending ending = Ending::kNone, Joined joined = Joined::kNo);
  void send_torn(Link& link, const Bytes& reply);
  void send_somehow(Link& link, const Bytes& reply, int64_t later_us = 0);
  void send_renumbered(Link& link, Bytes reply);
  void send_dripped(Link& link, const Bytes& reply);
  void deliver(Link& link, Bytes reply);
  void deliver_with(Fault fault, Link& link, Bytes reply);
  void damage_stream(Fault fault, Link& link, const Bytes& reply);
  void end_connection(Fault fault, Link& link, const Bytes& reply);
  void begin_absence();
  void remember(const Bytes& reply);

  Network* network_;
  Controller* controller_;
  Random random_;
  bool has_faults_;
  bool is_guarded_;
  uint32_t weather_permille_ = 0;
  int64_t weather_lag_us_ = 0;  // a controller that takes its time
  uint32_t weather_left_ = 0;
  int64_t wait_us_ = 0;
  int64_t gone_until_us_ = 0;
  ConnectFate::Kind gone_kind_ = ConnectFate::Kind::kRefused;
  unsigned long trouble_ = 0;
  unsigned long survivable_ = 0;
  uint16_t last_number_ = 0;
  std::vector<Bytes> history_;  // the last replies, a ring
  size_t history_at_ = 0;
  std::array<unsigned long, kFaults> counts_{};
};

}  // namespace plc_endure
