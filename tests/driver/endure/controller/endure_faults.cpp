// What goes wrong between the controller and the host.
#include "tests/driver/endure/controller/endure_faults.h"

#include <algorithm>

#include "tests/driver/endure/controller/endure_damage.h"
#include "wire/wire.h"

namespace plc_endure {
namespace {

namespace wire = plc_sim::wire;

constexpr size_t kHistory = 512;
constexpr uint32_t kOldestNumber = 20000;
constexpr uint32_t kLongestWeather = 300;
constexpr uint8_t kFiller = 0xEE;
constexpr uint32_t kMoreThanADrain = 70000;
constexpr int64_t kMillisecond = 1000;
constexpr int64_t kSecond = 1000 * kMillisecond;

constexpr const char* kNames[kFaults] = {
    "reply late by any time",
    "request carried out late",
    "request lost",
    "reply lost",
    "reply twice at once",
    "reply again later",
    "reply torn, with a pause",
    "reply byte by byte",
    "reply overtaken by the next",
    "bytes before a reply",
    "bytes behind a reply",
    "bytes between exchanges",
    "earlier frames before a reply",
    "earlier frames behind a reply",
    "foreign frame before a reply",
    "foreign frame instead of a reply",
    "broken head",
    "wrong sequence number",
    "garbage instead of a reply",
    "refused",
    "status on a reply",
    "incomplete",
    "too long",
    "empty",
    "close instead of a reply",
    "reset instead of a reply",
    "close inside a reply",
    "reset inside a reply",
    "close behind a reply",
    "reset behind a reply",
    "cut, then silence",
    "controller gone for a while",
    "connect held back",
    "host's machine busy",
};

bool is_write(const Bytes& request) { return kind_of(request) == Kind::kWrite; }

}  // namespace

const char* name_of(Fault fault) { return kNames[static_cast<size_t>(fault)]; }

Faults::Faults(Network* network, Controller* controller, uint64_t seed, bool has_faults, bool is_guarded)
    : network_(network), controller_(controller), random_(seed), has_faults_(has_faults), is_guarded_(is_guarded) {
  history_.resize(kHistory);
  for (Bytes& reply : history_) reply.reserve(wire::kMaxFrameBytes);
}

// --- chance

// Fair weather, showers and storms.
void Faults::turn_weather() {
  if (weather_left_-- > 0) return;
  constexpr uint32_t kPermille[] = {0, 0, 5, 20, 20, 60, 60, 300};
  weather_left_ = 20 + random_.below(kLongestWeather);
  weather_permille_ = kPermille[random_.below(8)];
  weather_lag_us_ = has_faults_ && random_.once_in(8) ? 1 + random_.below(5000) : 0;
}

void Faults::count(Fault fault, Link* link) {
  ++counts_[static_cast<size_t>(fault)];
  ++trouble_;
  if (link != nullptr) network_->journal().add(network_->now_us(), link->number, name_of(fault), nullptr, 0);
}

int64_t Faults::any_time() {
  switch (random_.below(6)) {
    case 0:
      return random_.below(50);
    case 1:
      return random_.below(20 * kMillisecond);
    case 2:
      return wait_us_ == 0 ? random_.below(100) : random_.below(static_cast<uint32_t>(wait_us_));
    case 3:
      return std::max<int64_t>(0, wait_us_ - 50 + random_.below(100));
    case 4:
      return wait_us_ + random_.below(kSecond);
    default:
      return random_.below(2 * kSecond);
  }
}

// None of the directory's two numbers; now and then one whose low byte is that of the number under way.
uint16_t Faults::past_number() {
  constexpr uint32_t kNumbersOfAByte = 256;
  uint16_t number = 0;
  while (number < 2) {
    const uint32_t age = random_.once_in(4) ? kNumbersOfAByte * (1 + random_.below(kOldestNumber / kNumbersOfAByte))
                                            : 1 + random_.below(kOldestNumber);
    number = static_cast<uint16_t>(last_number_ - age);
  }
  return number;
}

Bytes Faults::any_bytes(uint32_t most) {
  Bytes bytes(1 + random_.below(random_.once_in(2) ? std::min(most, 60U) : most), kFiller);
  if (random_.once_in(2)) {
    for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(random_.next());
  }
  return bytes;
}

// Replies that were sent before, whole and as they were; often the one that resembles this one most.
Bytes Faults::old_frames(uint32_t most_frames, const Bytes& reply) {
  Bytes frames;
  for (uint32_t left = random_.below(most_frames); left > 0; --left) {
    const Bytes& frame = history_[random_.below(kHistory)];
    frames.insert(frames.end(), frame.begin(), frame.end());
  }
  size_t last = random_.below(kHistory);
  for (size_t i = 0; i < kHistory && random_.next() % kHistory != 0; ++i) {
    const size_t at = (last + i) % kHistory;
    if (likeness(history_[at], reply) > likeness(history_[last], reply)) last = at;
  }
  frames.insert(frames.end(), history_[last].begin(), history_[last].end());
  return frames;
}

// A whole frame that cannot answer: of the past, or of this number and another class, command, or both.
Bytes Faults::foreign_frame(const Bytes& reply) {
  Bytes frame = reply;
  const uint32_t kind = random_.below(3);
  store16(frame.data() + wire::kStatusAt, 0);  // of the frame, not of what was asked for
  if (kind == 0) {
    frame.resize(wire::kReplyHeadBytes + random_.below(random_.once_in(4) ? 4082 : 60), kFiller);
    store16(frame.data() + wire::kSequenceAt, past_number());
  } else if (kind == 1) {
    frame[random_.once_in(2) ? wire::kClassAt : wire::kCommandAt] ^= static_cast<uint8_t>(1 + random_.below(255));
  } else {
    frame[wire::kClassAt] ^= static_cast<uint8_t>(1 + random_.below(255));
    frame[wire::kCommandAt] ^= static_cast<uint8_t>(1 + random_.below(255));
    frame.resize(wire::kReplyHeadBytes + random_.below(60), kFiller);
  }
  set_length(&frame);
  return frame;
}

// Not the directory: nothing tells its replies of two connections apart, and programs are renumbered between them.
void Faults::remember(const Bytes& reply) {
  if (!is_of_directory(reply)) history_[history_at_++ % kHistory] = reply;
}

void Faults::forget_replies() {
  for (Bytes& reply : history_) reply.clear();
}

// --- connections

ConnectFate Faults::connecting() {
  ConnectFate fate;
  fate.is_tcp = random_.once_in(10);
  if (network_->now_us() < gone_until_us_) {
    ++trouble_;
    // It neither refuses nor answers: the connect is never done.
    constexpr int64_t kFarAway = 1000 * kSecond;
    fate.kind = gone_kind_;
    fate.after_us = gone_kind_ == ConnectFate::Kind::kAccepted ? kFarAway : 0;
    return fate;
  }
  if (has_faults_ && random_.once_in(60)) {
    count(Fault::kConnectHeldBack, nullptr);
    fate.after_us = 1 + random_.below(60 * kMillisecond);
  }
  return fate;
}

// A controller that comes back is not itself for a while.
void Faults::begin_absence() {
  constexpr uint32_t kStartPermille = 400;
  weather_permille_ = kStartPermille;
  weather_left_ = 10 + random_.below(30);
  constexpr ConnectFate::Kind kKinds[] = {ConnectFate::Kind::kRefused, ConnectFate::Kind::kUnreachable,
                                          ConnectFate::Kind::kAccepted};
  gone_kind_ = kKinds[random_.below(3)];
  if (random_.once_in(2)) controller_->renumber_programs();
  gone_until_us_ = network_->now_us() + random_.below(20 * kMillisecond);
  network_->reset_all();
}

int64_t Faults::stall_us() {
  if (!has_faults_ || !random_.once_in(20000)) return random_.below(4);
  count(Fault::kStall, nullptr);
  return random_.below(3 * kSecond);
}

// --- requests and replies

int64_t Faults::arrived(Link& link, const Bytes& request) {
  turn_weather();
  network_->count_exchange();
  if (!is_of_directory(request)) last_number_ = big_endian16(request.data() + wire::kSequenceAt);
  if (has_faults_ && random_.once_in(4000)) {
    count(Fault::kGone, &link);
    begin_absence();
    return random_.once_in(2) ? kNever : network_->now_us() + any_time();
  }
  if (has_faults_ && random_.below(8000) < weather_permille_) {
    const bool is_lost = random_.once_in(3);
    count(is_lost ? Fault::kLostRequest : Fault::kLateExecution, &link);
    return is_lost ? kNever : network_->now_us() + any_time();
  }
  trouble_ += weather_lag_us_ > 0 ? 1U : 0U;
  return network_->now_us();
}

void Faults::serve(Link& link, const Pending& request) {
  const auto& meaning = *static_cast<const Meaning*>(request.meaning.get());
  const bool is_faulty = is_due();
  const auto fault = static_cast<Fault>(random_.below(static_cast<uint32_t>(Fault::kGone)));
  const bool may_do_nothing = fault == Fault::kRefused || fault == Fault::kStatus || fault == Fault::kEmpty ||
                              fault == Fault::kCloseBefore || fault == Fault::kResetBefore ||
                              fault == Fault::kForeignFrameInstead || fault == Fault::kGarbage ||
                              fault == Fault::kBrokenHead;
  const bool carry_out = !(is_faulty && may_do_nothing && is_write(request.bytes) && random_.once_in(2));
  Bytes reply;
  controller_->serve(request.bytes, meaning, carry_out, &reply);
  if (is_faulty) {
    // Number 0 and 1 are the directory's too.
    const bool is_met_by_older_ones = big_endian16(reply.data() + wire::kSequenceAt) < 2;
    const bool was_quiet = link.units.empty() && link.held.empty() && weather_lag_us_ == 0 && !is_met_by_older_ones;
    const unsigned long trouble = trouble_;
    const int64_t wait_end_us = network_->now_us() + wait_us_;
    count(fault, &link);
    deliver_with(fault, link, reply);
    const bool is_survived =
        fault == Fault::kTorn || fault == Fault::kDripped || fault == Fault::kLate || fault == Fault::kOldFramesBefore;
    const bool is_in_time = !link.units.empty() && link.units.back().due_us + 2 * kMillisecond < wait_end_us;
    if (is_guarded_ && is_survived && was_quiet && is_in_time) {
      trouble_ = trouble;
      ++survivable_;
    }
  } else {
    deliver(link, reply);
  }
  remember(reply);
}

void Faults::send(Link& link, Bytes bytes, int64_t later_us, Ending ending, Joined joined) {
  network_->send(link, {network_->now_us() + later_us, std::move(bytes), ending, joined == Joined::kToNext, 0});
}

// A held reply follows the one that overtook it.
void Faults::deliver(Link& link, Bytes reply) {
  send(link, std::move(reply), weather_lag_us_ == 0 ? 0 : random_.below(static_cast<uint32_t>(weather_lag_us_)));
  if (!link.held.empty()) {
    send(link, std::move(link.held), random_.once_in(2) ? 0 : any_time());
    link.held.clear();
  }
}

void Faults::send_torn(Link& link, const Bytes& reply) {
  size_t from = 0;
  int64_t later_us = random_.once_in(2) ? 0 : any_time();
  for (uint32_t pieces = 1 + random_.below(3); pieces > 0 && from < reply.size(); --pieces) {
    const size_t to = from + 1 +
                      random_.below(static_cast<uint32_t>(
                          std::min<size_t>(reply.size() - from, random_.once_in(2) ? 20 : reply.size())));
    send(link, part(reply, from, to), later_us, Ending::kNone, to < reply.size() ? Joined::kToNext : Joined::kNo);
    later_us += random_.once_in(3) ? 0 : any_time();
    from = to;
  }
  if (from < reply.size()) send(link, part(reply, from, reply.size()), later_us);
}

void Faults::send_dripped(Link& link, const Bytes& reply) {
  const int64_t pause_us = random_.once_in(2) ? 0 : random_.below(20 * kMillisecond);
  constexpr size_t kDrops = 200;
  for (size_t i = 0; i < reply.size(); ++i) {
    const size_t end = i >= kDrops ? reply.size() : i + 1;
    send(link, part(reply, i, end), pause_us * static_cast<int64_t>(i), Ending::kNone,
         end < reply.size() ? Joined::kToNext : Joined::kNo);
    i = end - 1;
  }
}

// As it is, or torn as well.
void Faults::send_somehow(Link& link, const Bytes& reply, int64_t later_us) {
  if (later_us == 0 && random_.once_in(4)) {
    send_torn(link, reply);
  } else {
    send(link, reply, later_us);
  }
}

// The next number only at once: later it would be that of the next request.
void Faults::send_renumbered(Link& link, Bytes reply) {
  const bool is_next = random_.once_in(3);
  store16(reply.data() + wire::kSequenceAt, is_next ? last_number_ + 1U : past_number());
  if (is_next) return send(link, std::move(reply));
  send_somehow(link, reply, random_.once_in(2) ? 0 : any_time());
}

void Faults::deliver_with(Fault fault, Link& link, Bytes reply) {
  switch (fault) {
    case Fault::kLate:
      return send(link, std::move(reply), any_time());
    case Fault::kDuplicateAtOnce:
      return send(link, joined(reply, reply));
    case Fault::kDuplicateLater:
      send(link, reply);
      return send(link, reply, random_.once_in(2) ? random_.below(60) : any_time());
    case Fault::kTorn:
      return send_torn(link, reply);
    case Fault::kDripped:
      return send_dripped(link, reply);
    case Fault::kOvertaken:
      link.held = std::move(reply);
      return;
    case Fault::kForeignFrameInstead:
      return send(link, foreign_frame(reply), random_.once_in(2) ? 0 : any_time());
    case Fault::kBrokenHead:
      break_head(random_, &reply);
      return send(link, std::move(reply));
    case Fault::kWrongNumber:
      return send_renumbered(link, std::move(reply));
    case Fault::kRefused:
    case Fault::kStatus:
      if (fault == Fault::kRefused) {
        refuse(random_, &reply);
      } else {
        set_status(random_, &reply);
      }
      return send_somehow(link, reply);
    case Fault::kIncomplete:
      shorten(random_, &reply);
      return send_somehow(link, reply);
    case Fault::kTooLong:
      reply = joined(std::move(reply), any_bytes(200));
      reply.resize(std::min(reply.size(), wire::kMaxFrameBytes));
      set_length(&reply);
      return send_somehow(link, reply);
    case Fault::kEmpty:
      reply.resize(wire::kReplyHeadBytes);
      set_length(&reply);
      return send_somehow(link, reply);
    case Fault::kLostReply:
      return;
    case Fault::kCut:
      Network::drop_units(link);  // what was begun must not be completed by what was late
      return send(link, part(reply, 0, random_.below(static_cast<uint32_t>(reply.size()))));
    case Fault::kGarbage:
      return send(link, any_bytes(random_.once_in(10) ? kMoreThanADrain : 2000));
    default:
      break;
  }
  if (fault >= Fault::kCloseBefore) {
    end_connection(fault, link, reply);
  } else {
    damage_stream(fault, link, reply);
  }
}

// Bytes and frames around a reply that is whole.
void Faults::damage_stream(Fault fault, Link& link, const Bytes& reply) {
  const int64_t later_us = random_.once_in(2) ? 0 : random_.below(random_.once_in(2) ? 60 : 5000);
  switch (fault) {
    case Fault::kBytesBefore:
      send(link, any_bytes(random_.once_in(20) ? kMoreThanADrain : 1500));
      return send(link, reply, later_us);
    case Fault::kBytesBehind:
      return send(link, joined(reply, any_bytes(1500)));
    case Fault::kBytesBetween:
      send(link, reply);
      if (random_.once_in(3)) {
        return send(link, Bytes(60000 + random_.below(kMoreThanADrain - 60000), kFiller), later_us);
      }
      return send(link, any_bytes(1500), later_us);
    case Fault::kOldFramesBefore:
      send(link, old_frames(random_.once_in(10) ? 100 : 6, reply));
      return send(link, reply, later_us);
    case Fault::kOldFramesBehind:
      send(link, reply);
      return send(link, old_frames(random_.once_in(10) ? 100 : 6, reply), later_us);
    default:
      send(link, foreign_frame(reply));
      return send(link, reply, later_us);
  }
}

void Faults::end_connection(Fault fault, Link& link, const Bytes& reply) {
  const bool is_close = fault == Fault::kCloseBefore || fault == Fault::kCloseInside || fault == Fault::kCloseBehind;
  const Ending ending = is_close ? Ending::kClose : Ending::kReset;
  const int64_t later_us = random_.once_in(2) ? 0 : random_.below(random_.once_in(2) ? 60 : 20 * kMillisecond);
  if (fault == Fault::kCloseInside || fault == Fault::kResetInside) {
    send(link, part(reply, 0, 1 + random_.below(static_cast<uint32_t>(reply.size()) - 1)), 0, Ending::kNone,
         Joined::kToNext);
  } else if (fault == Fault::kCloseBehind || fault == Fault::kResetBehind) {
    send(link, reply);
  }
  send(link, {}, later_us, ending);
}

}  // namespace plc_endure
