// Faults by name: their table, their text form, and what each does to a reply.
#include "tools/plc_sim/controller/faults.h"

#include <algorithm>
#include <charconv>

#include "base/near_names.h"
#include "base/text.h"
#include "tools/plc_sim/variables/mistake.h"
#include "wire/big_endian.h"

namespace plc_sim {
namespace {

constexpr unsigned kMaxArgument = 600000;  // ten minutes, or more bytes than any reply
constexpr unsigned kMaxStatus = 0xFFFF;
constexpr uint8_t kFillerByte = 0xEE;
constexpr unsigned kDefaultGarbageBytes = 64;

const std::vector<FaultInfo> kFaults{
    {FaultKind::kDelay, "delay", "MS", 1, 1, "the reply leaves MS milliseconds late"},
    {FaultKind::kNoReply, "no-reply", "", 0, 0, "nothing is sent, the connection stays open"},
    {FaultKind::kClose, "close", "", 0, 0, "the connection is closed instead of a reply"},
    {FaultKind::kReset, "reset", "", 0, 0, "the connection is reset instead of a reply"},
    {FaultKind::kCut, "cut", "N", 1, 1, "only the first N bytes of the reply are sent"},
    {FaultKind::kCloseAfter, "close-after", "N", 1, 1, "the connection is closed after N bytes of the reply"},
    {FaultKind::kResetAfter, "reset-after", "N", 1, 1, "the connection is reset after N bytes of the reply"},
    {FaultKind::kSplit, "split", "N MS", 2, 2, "the reply is sent in two pieces, N bytes and MS ms later the rest"},
    {FaultKind::kDrip, "drip", "MS", 1, 1, "the reply is sent byte by byte, one every MS milliseconds"},
    {FaultKind::kStale, "stale", "N", 1, 1, "N bytes that belong to nothing are sent right before the reply"},
    {FaultKind::kTrailing, "trailing", "N", 1, 1, "N bytes that belong to nothing are sent right after the reply"},
    {FaultKind::kDuplicate, "duplicate", "", 0, 0, "the reply is sent twice"},
    {FaultKind::kOversize, "oversize", "N", 1, 1, "the reply is filled up to N bytes"},
    {FaultKind::kGarbage, "garbage", "[N]", 0, 1, "N arbitrary bytes are sent instead of the reply"},
    {FaultKind::kWrongSequence, "wrong-sequence", "", 0, 0, "the reply carries the next sequence number"},
    {FaultKind::kForeign, "foreign", "[N]", 0, 1, "a whole frame numbered N (1) before the reply comes before it"},
    {FaultKind::kRefuse, "refuse", "[STATUS]", 0, 1, "the request is refused with a status (19), not carried out"},
    {FaultKind::kStatus, "status", "STATUS", 1, 1, "the reply is whole and has this status, 1 to 65535"},
    {FaultKind::kShort, "short", "N", 1, 1, "the last N bytes are missing, and the reply's length says so"},
    {FaultKind::kSlowAccept, "slow-accept", "MS", 1, 1, "the backlog is full for MS milliseconds"},
    {FaultKind::kRefuseAccept, "refuse-accept", "", 0, 0, "the backlog is full until the faults are cleared"},
    {FaultKind::kGone, "gone", "[MS]", 0, 1, "all connections are reset and none is taken, for MS ms or until cleared"},
};

const FaultInfo& info_of(FaultKind kind) {
  return *std::find_if(kFaults.begin(), kFaults.end(), [&](const FaultInfo& info) { return info.kind == kind; });
}

bool is_of_connects(FaultKind kind) {
  return kind == FaultKind::kSlowAccept || kind == FaultKind::kRefuseAccept || kind == FaultKind::kGone;
}

// "split N MS"
std::string form_of(const FaultInfo& info) {
  const std::string arguments = info.arguments;
  return std::string(info.name) + (arguments.empty() ? "" : " ") + arguments;
}

std::string written_as(const FaultInfo& info) { return "the fault is written: " + form_of(info); }

// The faults with near names, or all of them.
std::string near_or_all(std::string_view word) {
  std::vector<std::string> names;
  names.reserve(kFaults.size());
  for (const FaultInfo& info : kFaults) names.emplace_back(info.name);
  const std::string near = plc_base::did_you_mean(word, names);
  return near.empty() ? "there are " + plc_base::joined_with_or(names) : near;
}

unsigned parse_count(std::string_view text) {
  unsigned value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc{} || end != text.data() + text.size() || value > kMaxArgument) {
    throw Mistake("'" + std::string(text) + "' is not a number up to " + std::to_string(kMaxArgument));
  }
  return value;
}

constexpr RequestKind kRequestKinds[] = {
    RequestKind::kDirectoryStart, RequestKind::kDirectory,   RequestKind::kResolve, RequestKind::kRead,
    RequestKind::kWrite,          RequestKind::kMaskedWrite, RequestKind::kBit};

std::string typed_name(RequestKind kind) {
  std::string name = name_of(kind);
  std::replace(name.begin(), name.end(), ' ', '-');
  return name;
}

// "any" and what requests are called.
std::vector<std::string> request_names() {
  std::vector<std::string> names{"any"};
  for (const RequestKind kind : kRequestKinds) names.push_back(typed_name(kind));
  return names;
}

RequestKind parse_request_kind(std::string_view text) {
  for (const RequestKind kind : kRequestKinds) {
    if (text == typed_name(kind)) return kind;
  }
  throw Mistake("no request is called " + plc_base::quoted(text) + ": on= takes " +
                plc_base::joined_with_or(request_names()));
}

// A setting whose first half was left out: "always" for "times=always". Empty for anything else.
std::string setting_for(std::string_view word) {
  if (word == "always") return "times=always";
  for (const std::string& name : request_names()) {
    if (word == name) return "on=" + name;
  }
  return {};
}

// A setting whose value stands apart from it: "'on' is written on=REQUEST, as in: close on=read". Empty for anything
// else.
std::string setting_alone(std::string_view word, const FaultInfo& info) {
  struct Form {
    const char* key;
    const char* form;
    const char* example;
  };
  constexpr Form kForms[] = {{"on", "on=REQUEST", "on=read"},
                             {"times", "times=N", "times=3"},
                             {"after", "after=N", "after=2"},
                             {"every", "every=N", "every=5"}};
  for (const Form& known : kForms) {
    if (word != known.key) continue;
    std::string text = plc_base::quoted(word) + " is written " + known.form + ", as in: " + info.name;
    if (*info.arguments != '\0') text += std::string(" ") + info.arguments;
    return text + " " + known.example;
  }
  return {};
}

unsigned parse_argument(std::string_view word, const FaultInfo& info) {
  constexpr const char* kDigits = "0123456789";
  const bool is_number = !word.empty() && word.find_first_not_of(kDigits) == std::string_view::npos;
  if (is_number) return parse_count(word);
  const bool is_negative =
      word.size() > 1 && word.front() == '-' && word.find_first_not_of(kDigits, 1) == std::string_view::npos;
  const bool takes_settings = !is_of_connects(info.kind);
  const std::string alone = takes_settings ? setting_alone(word, info) : "";
  if (!alone.empty()) throw Mistake(alone);
  const std::string setting = takes_settings ? setting_for(word) : "";
  if (!setting.empty()) throw Mistake(plc_base::quoted(word) + " is written " + setting);
  throw Mistake(plc_base::quoted(word) + " is not a number" + (is_negative ? " from 0 on; " : "; ") + written_as(info));
}

unsigned parse_positive(std::string_view key, std::string_view value) {
  const unsigned count = parse_count(value);
  if (count > 0) return count;
  throw Mistake(std::string(key) + "=0 would never happen: it begins with 1" +
                (key == "times" ? ", or is always" : ""));
}

void parse_setting(std::string_view word, Fault& fault) {
  const size_t equals = word.find('=');
  const std::string_view key = word.substr(0, equals);
  const std::string_view value = word.substr(equals + 1);
  if (key == "times") {
    fault.times = value == "always" ? 0 : parse_positive(key, value);
  } else if (key == "after") {
    fault.after = parse_count(value);
  } else if (key == "every") {
    fault.every = parse_positive(key, value);
  } else if (key == "on") {
    fault.on = value == "any" ? std::nullopt : std::optional<RequestKind>(parse_request_kind(value));
  } else {
    throw Mistake("a fault has no setting " + plc_base::quoted(key) + ": there are times, on, after and every");
  }
}

// What happens to connects waits for no reply: a setting would be ignored.
void refuse_setting(std::string_view word, const FaultInfo& info) {
  if (!is_of_connects(info.kind)) return;
  throw Mistake(std::string(info.name) + " takes no " + std::string(word.substr(0, word.find('=') + 1)) +
                ": it happens as soon as it is armed; write " + form_of(info));
}

// Which of two values of one setting is meant is not to be guessed.
void refuse_twice(const std::vector<std::string_view>& words, size_t at) {
  const std::string_view start = words[at].substr(0, words[at].find('=') + 1);
  for (size_t i = 1; i < at; ++i) {
    if (words[i].substr(0, start.size()) != start) continue;
    throw Mistake(std::string(start) + " is given twice: leave one out");
  }
}

std::vector<std::string_view> split_words(std::string_view text) {
  std::vector<std::string_view> words;
  while (!text.empty()) {
    const size_t end = std::min(text.find(' '), text.size());
    if (end > 0) words.push_back(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return words;
}

Bytes filler(size_t count) { return Bytes(count, kFillerByte); }

// The same bytes in every run.
Bytes garbage(size_t count) {
  Bytes bytes;
  uint32_t state = 0x2545F491;
  for (size_t i = 0; i < count; ++i) {
    state = state * 1664525U + 1013904223U;
    bytes.push_back(static_cast<uint8_t>(state >> 24U));
  }
  return bytes;
}

Bytes first_bytes(const Bytes& reply, size_t count) {
  return Bytes(reply.begin(), reply.begin() + static_cast<std::ptrdiff_t>(std::min(count, reply.size())));
}

// The number of a reply that ends before it cannot be changed; neither can its status.
bool has_sequence(const Bytes& reply) { return reply.size() >= wire::kSequenceAt + 2; }

// The reply with another number, so much above or (as the complement of a number) below its own.
Bytes with_sequence_moved(Bytes reply, unsigned by) {
  if (has_sequence(reply)) put_u16(reply, wire::kSequenceAt, ByteView(reply).u16(wire::kSequenceAt) + by);
  return reply;
}

// At least a head, for which a reply that has none is filled up with zeros.
Bytes with_length_of(Bytes reply, size_t bytes) {
  reply.resize(std::max(bytes, wire::kReplyHeadBytes), 0);
  const auto length = static_cast<uint32_t>(reply.size() - wire::kLengthExcludes);
  put_u32(reply, 0, length);
  put_u32(reply, 4, ~length);
  return reply;
}

Bytes shortened(Bytes reply, size_t by) {
  if (reply.size() < wire::kReplyHeadBytes) return reply;
  const size_t bytes = reply.size() - std::min(reply.size(), by);
  return with_length_of(std::move(reply), bytes);
}

// A late reply as an earlier request may have had it: as long as this one, and of nobody's values.
Bytes earlier_frame(const Bytes& reply, unsigned ago) {
  Bytes frame = with_sequence_moved(reply, 0U - ago);
  for (size_t at = wire::kReplyHeadBytes; at < frame.size(); ++at) frame[at] = kFillerByte;
  return frame;
}

Bytes with_status(Bytes reply, unsigned status) {
  if (reply.size() >= wire::kReplyHeadBytes) put_u16(reply, wire::kStatusAt, status);
  return reply;
}

Delivery in_pieces(std::vector<Delivery::Piece> pieces, ReplyDamage damage) {
  return {std::move(pieces), AfterDelivery::kKeepOpen, damage};
}

Delivery ending(Bytes reply, AfterDelivery then) {
  Delivery delivery;
  if (!reply.empty()) delivery.pieces.push_back({0, std::move(reply)});
  delivery.then = then;
  delivery.damage = ReplyDamage::kTheStream;
  return delivery;
}

Delivery dripping(const Bytes& reply, unsigned wait_ms) {
  Delivery delivery;
  for (const uint8_t byte : reply) delivery.pieces.push_back({delivery.pieces.empty() ? 0 : wait_ms, Bytes{byte}});
  delivery.damage = ReplyDamage::kTheStream;
  return delivery;
}

Delivery split(const Bytes& reply, size_t at, unsigned wait_ms) {
  Bytes head = first_bytes(reply, at);
  Bytes tail(reply.begin() + static_cast<std::ptrdiff_t>(head.size()), reply.end());
  return in_pieces({{0, std::move(head)}, {wait_ms, std::move(tail)}}, ReplyDamage::kTheStream);
}

}  // namespace

bool Fault::concerns_accept() const { return is_of_connects(kind); }

const std::vector<FaultInfo>& known_faults() { return kFaults; }

const char* name_of(FaultKind kind) { return info_of(kind).name; }

Fault parse_fault(std::string_view text) {
  const std::vector<std::string_view> words = split_words(text);
  if (words.empty()) throw Mistake("a fault needs a name, as in: delay 200 times=3 on=read");
  const auto info =
      std::find_if(kFaults.begin(), kFaults.end(), [&](const FaultInfo& known) { return words.front() == known.name; });
  if (info == kFaults.end()) {
    throw Mistake("no fault is called " + plc_base::quoted(words.front()) + "; " + near_or_all(words.front()));
  }
  Fault fault;
  fault.kind = info->kind;
  for (size_t i = 1; i < words.size(); ++i) {
    if (words[i].find('=') != std::string_view::npos) {
      refuse_twice(words, i);
      parse_setting(words[i], fault);
      refuse_setting(words[i], *info);
    } else {
      fault.arguments.push_back(parse_argument(words[i], *info));
    }
  }
  if (fault.arguments.size() < info->min_arguments || fault.arguments.size() > info->max_arguments) {
    throw Mistake(written_as(*info));
  }
  const bool has_status = fault.kind == FaultKind::kRefuse || fault.kind == FaultKind::kStatus;
  if (has_status && !fault.arguments.empty() && (fault.arguments[0] == 0 || fault.arguments[0] > kMaxStatus)) {
    throw Mistake("a status is a number from 1 to 65535");
  }
  return fault;
}

std::string describe_once(const Fault& fault) {
  std::string text = name_of(fault.kind);
  for (const unsigned argument : fault.arguments) text += " " + std::to_string(argument);
  return text;
}

std::string describe(const Fault& fault) {
  std::string text = describe_once(fault);
  text += fault.times == 0 ? ", always"
                           : ", " + std::to_string(fault.times) + (fault.times == 1 ? " time more" : " times more");
  return text + (fault.on ? std::string(", on ") + name_of(*fault.on) : "");
}

uint16_t refusal_of(const Fault& fault) {
  return fault.arguments.empty() ? wire::kStatusBadRequest : static_cast<uint16_t>(fault.arguments[0]);
}

Delivery deliver_whole(Bytes reply) { return in_pieces({{0, std::move(reply)}}, ReplyDamage::kNone); }

Delivery deliver_with(const Fault& fault, Bytes reply) {
  const unsigned first = fault.arguments.empty() ? 0 : fault.arguments[0];
  const unsigned second = fault.arguments.size() < 2 ? 0 : fault.arguments[1];
  switch (fault.kind) {
    case FaultKind::kDelay:
      return in_pieces({{first, std::move(reply)}}, ReplyDamage::kNone);
    case FaultKind::kNoReply:
      return in_pieces({}, ReplyDamage::kThisReply);
    case FaultKind::kClose:
      return ending({}, AfterDelivery::kClose);
    case FaultKind::kReset:
      return ending({}, AfterDelivery::kReset);
    case FaultKind::kCut:
      return in_pieces({{0, first_bytes(reply, first)}}, ReplyDamage::kThisReply);
    case FaultKind::kCloseAfter:
      return ending(first_bytes(reply, first), AfterDelivery::kClose);
    case FaultKind::kResetAfter:
      return ending(first_bytes(reply, first), AfterDelivery::kReset);
    case FaultKind::kSplit:
      return split(reply, first, second);
    case FaultKind::kDrip:
      return dripping(reply, first);
    case FaultKind::kStale: {
      Bytes stale = filler(first);
      return in_pieces({{0, std::move(stale)}, {0, std::move(reply)}}, ReplyDamage::kTheStream);
    }
    case FaultKind::kTrailing:
      return in_pieces({{0, std::move(reply)}, {0, filler(first)}}, ReplyDamage::kTheStream);
    case FaultKind::kDuplicate: {
      Bytes again = reply;
      return in_pieces({{0, std::move(reply)}, {0, std::move(again)}}, ReplyDamage::kTheStream);
    }
    case FaultKind::kOversize:
      reply.resize(std::max<size_t>(reply.size(), first), kFillerByte);
      return in_pieces({{0, std::move(reply)}}, ReplyDamage::kTheStream);
    case FaultKind::kGarbage:
      return in_pieces({{0, garbage(fault.arguments.empty() ? kDefaultGarbageBytes : first)}}, ReplyDamage::kThisReply);
    case FaultKind::kWrongSequence:
      return in_pieces({{0, with_sequence_moved(std::move(reply), 1)}}, ReplyDamage::kNone);
    case FaultKind::kForeign: {
      Bytes earlier = earlier_frame(reply, fault.arguments.empty() ? 1 : first);
      return in_pieces({{0, std::move(earlier)}, {0, std::move(reply)}}, ReplyDamage::kTheStream);
    }
    case FaultKind::kRefuse:
      return in_pieces({{0, with_status(with_length_of(std::move(reply), 0), refusal_of(fault))}},
                       ReplyDamage::kThisReply);
    case FaultKind::kStatus:
      return in_pieces({{0, with_status(std::move(reply), first)}}, ReplyDamage::kNone);
    case FaultKind::kShort:
      return in_pieces({{0, shortened(std::move(reply), first)}}, ReplyDamage::kThisReply);
    case FaultKind::kSlowAccept:
    case FaultKind::kRefuseAccept:
    case FaultKind::kGone:
      break;
  }
  return deliver_whole(std::move(reply));
}

bool FaultBook::arm(Fault fault) {
  if (armed_.size() >= kMostArmedFaults) return false;
  armed_.push_back(std::move(fault));
  return true;
}

std::optional<Fault> FaultBook::take(RequestKind kind) {
  for (auto fault = armed_.begin(); fault != armed_.end(); ++fault) {
    if (fault->concerns_accept() || (fault->on && *fault->on != kind)) continue;
    const unsigned number = fault->seen++;
    if (number < fault->after || (number - fault->after) % fault->every != 0) continue;
    const Fault due = *fault;
    count(due.kind);
    if (fault->times == 1) {
      armed_.erase(fault);
    } else if (fault->times > 1) {
      --fault->times;
    }
    return due;
  }
  return std::nullopt;
}

unsigned FaultBook::count_of(FaultKind kind) const {
  const auto found = counts_.find(kind);
  return found == counts_.end() ? 0 : found->second;
}

}  // namespace plc_sim
