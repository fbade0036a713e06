// Looks for what can go wrong between a request and its reply.
#include "wire/judgement.h"

#include <algorithm>
#include <cstdio>

#include "base/text.h"
#include "wire/big_endian.h"
#include "wire/names.h"
#include "wire/reply_parts.h"

namespace wire_trace {

namespace wire = plc_sim::wire;
using plc_sim::RequestKind;

namespace {

using plc_base::milliseconds_text;
using plc_base::plural;

constexpr int64_t kNsPerMs = 1000000;
constexpr int64_t kApartNs = kNsPerMs;  // pieces this far apart do not come with one receive

constexpr const char* kSplitAdvice =
    "The contract build takes what one receive delivers: look for what splits replies on their way (a radio link, a "
    "router, a small MTU).";

constexpr const char* kLateAdvice =
    "Raise recv_timeout_s (--timeout) above the controller's slowest reply: the contract build takes replies by "
    "their order and does not compare sequence numbers.";

constexpr const char* kDoubledAdvice =
    "Something between host and controller sends replies twice, and the second may be taken for the next one. Look at "
    "gateways, routers and terminal servers on the way, and capture on both sides of them (tcpdump).";

std::string hex_word(unsigned value) {
  char text[8];
  std::snprintf(text, sizeof text, "%04X", value & 0xFFFFU);
  return text;
}

// Positions of the names that have no handle in a reply.
std::vector<size_t> refused_in(const Bytes& reply, size_t names) {
  const std::vector<NameRecord> records = records_of(reply, names);
  std::vector<size_t> refused;
  for (size_t i = 0; i < records.size(); ++i) {
    if (!records[i].is_received || records[i].handle.is_null()) refused.push_back(i);
  }
  return refused;
}

// Collects what is said of one exchange.
class Judge {
 public:
  Judge(const std::vector<Exchange>& exchanges, size_t index, size_t number, const std::optional<Reader>& reader)
      : exchanges_(exchanges), exchange_(exchanges[index]), index_(index), reader_(reader), reply_(exchange_.reply()) {
    subject_ =
        std::string("exchange ") + std::to_string(number) + " (" + plc_sim::name_of(exchange_.request.kind) + ")";
  }

  std::vector<Remark> judge() {
    for (const std::string& oddity : exchange_.oddities) {
      fault("the request is not one that the driver sends: " + oddity,
            "See whether another program talks to the controller, and whether the capture holds every packet.");
    }
    judge_handles();
    if (!exchange_.is_answered()) {
      judge_silence();
      return remarks_;
    }
    if (exchange_.is_echo()) {
      fault("the request came back as it was sent: what answers is an echo, not a controller",
            "See whether the address and port are those of the controller's host link, and what stands in its place.");
      return remarks_;
    }
    if (!head_of(reply_).is_reply) {
      judge_foreign_bytes();
      return remarks_;
    }
    if (!judge_whose_reply(head_of(reply_))) return remarks_;
    const ReplyHead head = head_of(reply_);  // that of the right reply, where others were skipped
    const bool is_whole = judge_length(head);
    judge_status(head);
    if (is_whole && !is_refusal(head)) judge_content();  // a refusal holds nothing, and that is no cause of its own
    return remarks_;
  }

 private:
  void fault(const std::string& what, const std::string& advice) {
    remarks_.push_back({subject_ + ": " + what, advice, true});
  }
  void oddity(const std::string& what, const std::string& advice) {
    remarks_.push_back({subject_ + ": " + what, advice, false});
  }

  void judge_silence() {
    const std::string after = milliseconds_text(exchange_.ending_ns - exchange_.request_ns, 1);
    switch (exchange_.ending) {
      case Ending::kReset:
        fault(
            "the controller reset the connection instead of answering",
            "It was switched off, restarted, or takes no more connections: see whether another host is connected, and "
            "read again, the next transfer connects by itself.");
        break;
      case Ending::kClosedByController:
        fault("the controller closed the connection instead of answering",
              "See whether the controller allows this host and one connection more; the contract build notices a close "
              "only when sending fails, up to two transfers later.");
        break;
      case Ending::kClosedByHost:
        fault("no reply within " + after + ", then the host gave up and closed the connection",
              "Raise recv_timeout_s (--timeout), and look at the controller's load and at the network between.");
        break;
      case Ending::kNone:
        fault("no reply", "Look at the controller's load and at the network between.");
        break;
    }
  }

  // Where the reply to this request starts in what came; npos when it does not.
  size_t find_own_reply() const {
    const plc_sim::ByteView view(reply_);
    const plc_sim::ByteView request(exchange_.request_bytes);
    for (size_t at = 1; at + wire::kHeadBytes <= view.size(); ++at) {
      if (view.u32(at + 4) == ~view.u32(at) && view.u32(at + wire::kSequenceAt) == request.u32(wire::kSequenceAt)) {
        return at;
      }
    }
    return std::string::npos;
  }

  // What lies farther back than this says nothing of an exchange, and long captures come to an end.
  size_t first_looked_at() const {
    constexpr size_t kMostLookedAt = 256;
    return index_ - std::min(index_, kMostLookedAt);
  }

  // Bytes that the reply before this one was short of.
  uint64_t missing_before() const {
    for (size_t i = index_; i-- > first_looked_at();) {
      if (exchanges_[i].connection != exchange_.connection) continue;
      const Bytes before = exchanges_[i].reply();
      const ReplyHead head = head_of(before);
      const bool is_short = head.is_reply && head.announced > before.size();
      return is_short ? head.announced - before.size() : 0;
    }
    return 0;
  }

  void judge_foreign_bytes() {
    constexpr size_t kLengthBytes = 8;
    const size_t own = find_own_reply();
    const plc_sim::ByteView view(reply_);
    const bool may_be_head = view.size() < kLengthBytes || view.u32(4) == ~view.u32(0);
    if (own != std::string::npos && own == missing_before()) {
      fault("the rest of the reply before it, " + plural(own, "byte") + ", came first, and " +
                (is_guarded() ? "the guarded build refused it" : "the contract build takes it for the reply"),
            kSplitAdvice);
    } else if (own != std::string::npos) {
      fault(plural(own, "byte") + " that belong to nothing came before the reply, and " +
                (is_guarded() ? "the guarded build refused them" : "the contract build takes them for it"),
            "Something else writes into the connection, or an older reply was longer than it said: capture the "
            "controller's port (tcpdump) and look there.");
    } else if (reply_.size() < wire::kHeadBytes && may_be_head) {
      fault("the reply has " + plural(reply_.size(), "byte") + ", not even a head" + ending_words(),
            "The controller or something between breaks replies off: look at the network, then at the controller.");
    } else {
      fault("what came is not a reply: its first eight bytes are not a length and the complement of it",
            "See whether the address and port are those of the controller's host link, and whether something between "
            "(a gateway, a terminal server) changes the bytes.");
    }
  }

  std::string ending_words() const {
    switch (exchange_.ending) {
      case Ending::kReset:
        return ", then the controller reset the connection";
      case Ending::kClosedByController:
        return ", then the controller closed the connection";
      default:
        return {};
    }
  }

  bool is_guarded() const { return reader_ && reader_->is_guarded; }

  // The earlier exchange of this connection whose request has these marks; null when there is none.
  const Exchange* earlier_with(const ReplyHead& head) const {
    for (size_t i = index_; i-- > first_looked_at();) {
      if (exchanges_[i].connection == exchange_.connection && answers(head, exchanges_[i].request_bytes)) {
        return &exchanges_[i];
      }
    }
    return nullptr;
  }

  ReplyHead head_at(size_t at) const {
    const auto start = reply_.begin() + static_cast<std::ptrdiff_t>(at);
    const size_t bytes = std::min(reply_.size() - at, wire::kReplyHeadBytes);
    return head_of(Bytes(start, start + static_cast<std::ptrdiff_t>(bytes)));
  }

  // Where the right reply starts behind whole replies that are none; npos where it is not among what came.
  size_t find_own_behind_others() const {
    size_t at = 0;
    for (ReplyHead head = head_at(at); head.is_reply && head.announced <= reply_.size() - at; head = head_at(at)) {
      if (answers(head, exchange_.request_bytes)) return at;
      at += static_cast<size_t>(head.announced);
    }
    return std::string::npos;
  }

  // Whether the right reply came behind the next request: the contract build had gone on without it.
  bool came_later() const {
    for (size_t i = index_ + 1; i < exchanges_.size(); ++i) {
      if (exchanges_[i].connection != exchange_.connection) continue;
      const ReplyHead head = head_of(exchanges_[i].reply());
      return head.is_reply && answers(head, exchange_.request_bytes) && !answers(head, exchanges_[i].request_bytes);
    }
    return false;
  }

  // False when the rest of what came says nothing about this request. What the guarded build skips is no fault of its
  // own, and the right reply behind it is what is judged on.
  bool judge_whose_reply(const ReplyHead& head) {
    if (answers(head, exchange_.request_bytes)) return true;
    const size_t own = find_own_behind_others();
    const bool is_lone = own == std::string::npos && !came_later();
    if (is_lone && earlier_with(head) == nullptr) return judge_lone_reply(head);
    const bool is_skipped = is_guarded() && head.sequence != sequence();
    const Remark other = remark_on_other(head);
    remarks_.push_back({subject_ + ": " + other.what + fate_of(head), other.advice, !is_skipped});
    if (!is_skipped) return false;
    if (own == std::string::npos) {
      fault("no reply of its own came whole",
            "Raise recv_timeout_s (--timeout), and look at the controller's load and at the network between.");
      return false;
    }
    reply_.erase(reply_.begin(), reply_.begin() + static_cast<std::ptrdiff_t>(own));
    has_skipped_ = true;
    return true;
  }

  uint16_t sequence() const { return plc_sim::ByteView(exchange_.request_bytes).u16(wire::kSequenceAt); }

  // A reply that is not the right one, alone in its place.
  bool judge_lone_reply(const ReplyHead& head) {
    const plc_sim::ByteView request(exchange_.request_bytes);
    constexpr const char* kNotRepeated =
        "No request of this kind before it has this number. The guarded build does not read a controller that does not "
        "repeat sequence numbers: plc-host survey tells whether all replies are so, and whether the contract build "
        "reads it.";
    if (head.request_class == request.u8(wire::kClassAt) && head.command == request.u8(wire::kCommandAt)) {
      fault(
          "the reply carries the sequence number " + hex_word(head.sequence) + ", the request " + hex_word(sequence()),
          kNotRepeated);
      return true;
    }
    fault("the reply is one to another request: class and command " +
              class_and_command(head.request_class, head.command) + " instead of " +
              class_and_command(request.u8(wire::kClassAt), request.u8(wire::kCommandAt)),
          kLateAdvice);
    return false;
  }

  // Of a reply before the right one, or in its place: one of an earlier request, doubled or late, or nobody's.
  Remark remark_on_other(const ReplyHead& head) const {
    const std::string marks = " (sequence number " + hex_word(head.sequence) + ", class and command " +
                              class_and_command(head.request_class, head.command) + ")";
    const Exchange* earlier = earlier_with(head);
    const std::optional<Bytes> taken = earlier != nullptr ? earlier->own_reply() : std::nullopt;
    if (taken && taken->size() <= reply_.size() && std::equal(taken->begin(), taken->end(), reply_.begin())) {
      return {"a doubled reply: that to the " + std::string(plc_sim::name_of(earlier->request.kind)) +
                  " request before it came again" + marks,
              kDoubledAdvice};
    }
    if (earlier == nullptr || taken) {
      return {"a foreign reply" + marks + " came before the right one",
              "It answers no request that waited for a reply: look for what else writes into the connection (a "
              "gateway, another host behind it), and capture on both sides of it (tcpdump)."};
    }
    return {"a stale reply: it belongs to an earlier request" + marks,
            earlier->is_answered() ? "Look first at what came for that request. The contract build takes replies by "
                                     "their order: each one counts for the next from there on."
                                   : kLateAdvice};
  }

  // What becomes of a whole reply that is not the right one.
  std::string fate_of(const ReplyHead& head) const {
    const bool has_number = head.sequence == sequence();
    if (!reader_) {
      return std::string(", which the contract build takes for the reply and the guarded build ") +
             (has_number ? "refuses" : "skips");
    }
    if (!reader_->is_guarded) return ", and the contract build took it for the reply";
    return std::string(", and the guarded build ") + (has_number ? "refused it" : "skipped it");
  }

  static std::string class_and_command(uint8_t request_class, uint8_t command) {
    return hex_word((static_cast<unsigned>(request_class) << 8U) | command);
  }

  // False when the reply ends before it should.
  bool judge_length(const ReplyHead& head) {
    if (reply_.size() < head.announced) {
      fault("a short reply: its head announces " + plural(head.announced, "byte") + ", " +
                std::to_string(reply_.size()) + " came" + ending_words(),
            "Missing bytes read as 0 or as what was there before: do not trust the value. Look at the network, then at "
            "the controller.");
      return false;
    }
    judge_rest(head);
    if (has_skipped_) return true;
    const Piece& first = exchange_.pieces.front();
    if (first.bytes.size() >= head.announced) return true;
    const int64_t apart_ns = exchange_.pieces.back().time_ns - first.time_ns;
    const std::string what = "the reply came in " + plural(exchange_.pieces.size(), "piece") + ", the last one " +
                             milliseconds_text(apart_ns, 1) + " after the first";
    apart_ns >= kApartNs ? fault(what, kSplitAdvice) : oddity(what, kSplitAdvice);
    return true;
  }

  // What came behind a whole reply.
  void judge_rest(const ReplyHead& head) {
    const auto own_end = reply_.begin() + static_cast<std::ptrdiff_t>(head.announced);
    auto rest = own_end;
    while (reply_.end() - rest >= own_end - reply_.begin() && std::equal(reply_.begin(), own_end, rest)) {
      rest += own_end - reply_.begin();
    }
    if (rest != own_end) {
      const std::string what = "a doubled reply: the same " + plural(head.announced, "byte") + " came again behind it";
      const bool is_refused = is_guarded() && reader_->has_refused_rest && index_ + 1 == exchanges_.size();
      is_refused ? fault(what + ", and the guarded build refused both", kDoubledAdvice) : oddity(what, kDoubledAdvice);
    }
    if (rest != reply_.end()) {
      oddity(plural(static_cast<size_t>(reply_.end() - rest), "byte") +
                 " more than the reply's head announces came behind it",
             "They may be taken for the next reply; look for what else writes into the connection.");
    }
  }

  static bool is_refusal(const ReplyHead& head) { return head.status && *head.status != wire::kStatusDone; }

  void judge_status(const ReplyHead& head) {
    if (!is_refusal(head)) return;
    const std::string status = "status " + hex_word(*head.status) + " in bytes 12 and 13";
    if (exchange_.request.kind == RequestKind::kResolve) {
      judge_refusal(status);
      return;
    }
    if (exchange_.request.kind == RequestKind::kRead && lacks_handles()) return;  // a consequence
    fault("the controller refused the request: " + status, advice_on_refusal());
  }

  const char* advice_on_refusal() const {
    switch (exchange_.request.kind) {
      case RequestKind::kRead:
        return "The handles or the size asked for do not fit the variable: compare the type in the tag file with the "
               "controller's declaration.";
      case RequestKind::kDirectoryStart:
      case RequestKind::kDirectory:
        return "It was the controller's directory of programs that was asked for, not a variable. Check that this is "
               "the controller's host link port, and that no password or mode of it stands before it.";
      default:
        return "Compare type, length and write permission of the variable in the controller.";
    }
  }

  // The request for names that this one rests on; null when there is none.
  const Exchange* names_before() const {
    for (size_t i = index_; i-- > first_looked_at();) {
      const Exchange& before = exchanges_[i];
      if (before.connection == exchange_.connection && before.request.kind == RequestKind::kResolve) return &before;
    }
    return nullptr;
  }

  // The names were refused, or the contract build took its handles from a reply that was not theirs.
  bool lacks_handles() const {
    const Exchange* names = names_before();
    const ReplyHead head = names != nullptr ? head_of(names->reply()) : ReplyHead();
    const bool is_contract = reader_ && !reader_->is_guarded;
    return head.is_reply && (is_refusal(head) || (is_contract && !answers(head, names->request_bytes)));
  }

  // Values must be asked for by the handles that the names were given.
  void judge_handles() {
    constexpr uint32_t kBitNumberMask = 0x0F;
    constexpr uint32_t kLowHalf = 0xFFFF;
    const Exchange* names = exchange_.request.kind == RequestKind::kRead ? names_before() : nullptr;
    if (names == nullptr || !names->is_answered()) return;
    const Bytes reply = names->pieces.front().bytes;
    const ReplyHead head = head_of(reply);
    if (!head.is_reply || !answers(head, names->request_bytes) || reply.size() < head.announced) {
      return;  // what is wrong with that reply explains the handles too
    }
    const auto records = records_of(reply, names_of(names->request).size());
    const auto& references = exchange_.request.references;
    for (size_t i = 0; i < std::min(records.size(), references.size()); ++i) {
      const plc_sim::Handle& given = records[i].handle;
      // A bit's whole word, or the two bytes that bits of arrays with a '.' in their names carry.
      const uint32_t asked = references[i].handle.address;
      const bool fits =
          asked == given.address || asked == (given.address & ~kBitNumberMask) || asked == (given.address & kLowHalf);
      if (references[i].handle.area != given.area || !fits) {
        fault("value " + std::to_string(i + 1) + " is asked for at " + handle_text(references[i].handle) +
                  ", its name was given " + handle_text(given),
              "The driver took other bytes for the reply to its names: see what is said of that reply.");
        return;
      }
    }
  }

  void judge_refusal(const std::string& status) {
    const std::vector<SentName> names = names_of(exchange_.request);
    const std::vector<size_t> refused = refused_in(reply_, names.size());
    std::string listed;
    constexpr size_t kMostListed = 5;
    for (size_t i = 0; i < std::min(refused.size(), kMostListed); ++i) {
      const SentName& name = names[refused[i]];
      listed += (i == 0 ? "" : ", ") + plc_sim::shown_name(name.name);
      listed += name.is_local ? " (scope " + std::to_string(name.program) + ")" : " (global)";
    }
    if (refused.size() > kMostListed) listed += " and " + std::to_string(refused.size() - kMostListed) + " more";
    fault("the controller refused " + (listed.empty() ? std::string("the names") : listed) + ": " + status,
          "No variable of this name in this scope, or not with these subscripts: compare spelling, case, scope and "
          "array bounds with the controller's own list of variables.");
  }

  void judge_content() {
    const plc_sim::Request& request = exchange_.request;
    if (request.kind == RequestKind::kResolve) {
      const auto records = records_of(reply_, names_of(request).size());
      const auto received = static_cast<size_t>(
          std::count_if(records.begin(), records.end(), [](const NameRecord& record) { return record.is_received; }));
      if (received < records.size()) {
        fault("handles for " + std::to_string(received) + " of " + plural(records.size(), "name") + " in the reply",
              "Ask for fewer elements in one read; handles that were not received read as 0.");
      }
    } else if (request.kind == RequestKind::kRead && reply_.size() < wire::kReplyHeadBytes) {
      fault("the reply has " + plural(reply_.size(), "byte") + ", a value starts behind byte 13",
            "A refusal, as of a name that the controller does not have in this scope, or a piece of the reply.");
    } else if (request.kind == RequestKind::kRead) {
      judge_values();
    }
  }

  void judge_values() {
    const size_t wanted = values_bytes(exchange_.request);
    const auto whole = static_cast<size_t>(std::min<uint64_t>(head_of(reply_).announced, reply_.size()));
    const size_t came = std::max(whole, wire::kReplyHeadBytes) - wire::kReplyHeadBytes;
    if (came < wanted) {
      fault(
          "the reply holds " + plural(came, "byte") + " of values, the sizes asked for take " + std::to_string(wanted),
          "The variable is shorter than the tag file declares it: compare type and length with the controller's "
          "declaration.");
    } else if (came > wanted) {
      oddity(
          "the reply holds " + plural(came, "byte") + " of values, the sizes asked for take " + std::to_string(wanted),
          "The variable may be longer than the tag file declares it: compare type and length with the controller's "
          "declaration.");
    }
  }

  const std::vector<Exchange>& exchanges_;
  const Exchange& exchange_;
  size_t index_;
  std::optional<Reader> reader_;
  Bytes reply_;  // what came, from the reply on that is judged
  bool has_skipped_ = false;
  std::string subject_;
  std::vector<Remark> remarks_;
};

}  // namespace

std::vector<SentName> names_of(const plc_sim::Request& request) {
  std::vector<SentName> names;
  for (const plc_sim::NameBlock& block : request.blocks) {
    for (const std::u16string& units : block.names) {
      names.push_back({plc_sim::utf8_from_utf16(units), block.is_local, block.program});
    }
  }
  return names;
}

std::vector<size_t> refused_names(const Exchange& exchange) {
  return refused_in(exchange.reply(), names_of(exchange.request).size());
}

std::vector<Remark> judge_exchange(const std::vector<Exchange>& exchanges, size_t index, size_t number,
                                   const std::optional<Reader>& reader) {
  return Judge(exchanges, index, number, reader).judge();
}

}  // namespace wire_trace
