// Judges each reply by the rules of the guarded build, and keeps the first frames that show a rule kept and broken.
#include "tools/plc_host/survey/rule_book.h"

#include <algorithm>

#include "base/text.h"
#include "wire/big_endian.h"
#include "wire/names.h"
#include "wire/reply_parts.h"

namespace plc_host::survey {
namespace {

namespace wire = plc_sim::wire;
using plc_sim::Bytes;
using plc_sim::ByteView;
using plc_sim::RequestKind;

constexpr size_t kMostBrokenShown = 2;
constexpr uint64_t kRareOf = 10;       // more than one of so many is no chance
constexpr uint64_t kEnoughValues = 3;  // replies with values that have the same behind these

void count_field(HeadCounts::Field& field, bool is_right, bool is_zero) {
  ++(is_right ? field.right : is_zero ? field.zero : field.other);
}

bool is_write(RequestKind kind) {
  return kind == RequestKind::kWrite || kind == RequestKind::kMaskedWrite || kind == RequestKind::kBit;
}

// Of at least one.
uint16_t most_frequent(const std::map<uint16_t, uint64_t>& statuses) {
  const auto is_rarer = [](const auto& one, const auto& other) { return one.second < other.second; };
  return std::max_element(statuses.begin(), statuses.end(), is_rarer)->first;
}

// Whether nothing but zeros stands where the values are.
bool has_zeros_alone(const plc_sim::Bytes& reply) {
  const auto start = reply.begin() + static_cast<std::ptrdiff_t>(std::min(reply.size(), wire::kReplyHeadBytes));
  return std::all_of(start, reply.end(), [](uint8_t byte) { return byte == 0; });
}

// "sequence number 17, as asked", "sequence number 0 in place of 17".
std::string field_title(const char* what, const std::string& got, const std::string& asked) {
  const std::string title = std::string(what) + " " + got;
  return got == asked ? title + ", as asked" : title + " in place of " + asked;
}

// Behind the end that its head says.
bool has_bytes_behind(const Asked& asked) {
  const ByteView head(asked.answer.bytes);
  return asked.answer.end == ProbeReply::End::kWhole && size_t{head.u32(0)} + wire::kLengthExcludes < head.size();
}

// "0C 28"
std::string function_text(const ByteView& head) {
  return wire_trace::hex_text(head.part(wire::kClassAt, 2).bytes(), 2);
}

}  // namespace

void RuleBook::note(Id rule, bool holds, const Asked& asked, const std::string& title) {
  tallies_[rule].note(subject_, holds);
  note_in(rules_[rule], holds, asked, title);
}

void RuleBook::note_doubt(Id rule, const Asked& asked, const std::string& title) {
  note_in(doubts_[rule], false, asked, title);
}

void RuleBook::note_in(Verdict::Rule& entry, bool holds, const Asked& asked, const std::string& title) {
  const uint64_t before = holds ? entry.kept : entry.broken;
  ++(holds ? entry.kept : entry.broken);
  if (before >= (holds ? 1 : kMostBrokenShown)) return;
  plc_sim::Findings ignored;
  const std::string kind = plc_sim::name_of(plc_sim::parse_request(asked.request, ignored).kind);
  const std::string titled = "reply to " + kind + ": " + title;
  entry.evidence.push_back({titled, asked.packet, asked.request, asked.answer.bytes, asked.shape.is_refused, !holds});
  if (!holds) first_seen_.append(first_seen_.empty() ? "" : "; ").append(entry.evidence.back().title);
}

void RuleBook::take_head(const Asked& asked) {
  const ByteView request(asked.request);
  const Bytes& reply = asked.answer.bytes;
  const ByteView head(reply);
  const uint32_t length = head.u32(0);
  const uint32_t complement = head.u32(4);
  const size_t announced = size_t{length} + wire::kLengthExcludes;
  const auto own_length = static_cast<uint32_t>(reply.size() - wire::kLengthExcludes);
  const bool is_head = reply.size() >= wire::kHeadBytes;
  const bool ends = asked.answer.end == ProbeReply::End::kWhole;
  count_field(counts_.length, is_head && (length == own_length || ends), length == 0);
  count_field(counts_.complement, is_head && (complement == ~length || complement == ~own_length), complement == 0);
  const std::string bytes = plc_base::plural(reply.size(), "byte");
  note(kLength, is_head && ends, asked,
       ends ? "length, complement and size agree"
            : wire_trace::hex_text(head.part(0, 8).bytes(), 8) + " before " + bytes + " in all");
  has_more_behind_ = ends && reply.size() != announced;
  if (has_more_behind_) {
    ++counts_.with_more_behind;
    counts_.bytes_unasked += reply.size() - announced;
  }
  note(kEnd, !ends || reply.size() == announced, asked,
       reply.size() == announced || !ends ? "nothing behind it"
                                          : plc_base::plural(reply.size() - announced, "byte") + " behind it");
  const unsigned sequence = head.u16(wire::kSequenceAt);
  count_field(counts_.sequence, is_head && sequence == request.u16(wire::kSequenceAt), sequence == 0);
  take_number(asked, reply);
  const uint8_t request_class = head.u8(wire::kClassAt);
  const uint8_t command = head.u8(wire::kCommandAt);
  const bool is_class = request_class == request.u8(wire::kClassAt);
  const bool is_command = command == request.u8(wire::kCommandAt);
  count_field(counts_.request_class, is_head && is_class, request_class == 0);
  count_field(counts_.command, is_head && is_command, command == 0);
  note(kFunction, is_head && is_class && is_command, asked,
       field_title("class and command", function_text(head), function_text(request)));
}

void RuleBook::note_status(const Asked& asked, const std::string& words) {
  const uint16_t status = status_of(asked.answer.bytes);
  const auto [at, is_new] = statuses_.insert({{status, words}, counts_.statuses.size()});
  if (is_new) {
    const std::string title = "status " + plc_base::hexadecimal(status, 4) + " in the reply to " + words;
    counts_.statuses.push_back({status, words, 0, {title, asked.packet, asked.request, asked.answer.bytes}});
    counts_.statuses.back().first.is_refusal = status != 0 && !is_odd_answer(counts_.statuses.back());
    first_seen_.append(first_seen_.empty() ? "" : "; ").append(title);
  }
  ++counts_.statuses[at->second].count;
}

// A reply with zeros for all values looks like an answer: its status, which answers do not have, tells it from them. As
// long as no value came it is that of names which were answered.
void RuleBook::refuse_by_status(RequestKind kind, Asked& asked) const {
  const uint16_t status = status_of(asked.answer.bytes);
  if (kind != RequestKind::kRead || status == 0 || !asked.shape.is_complete) return;
  const bool is_first = statuses_by_kind_.count(kind) == 0;
  const auto known = statuses_by_kind_.find(is_first ? RequestKind::kResolve : kind);
  if (known == statuses_by_kind_.end() || status == most_frequent(known->second)) return;
  if (is_first && !has_zeros_alone(asked.answer.bytes)) return;
  asked.shape.is_complete = false;
  asked.shape.is_refused = asked.shape.is_full = true;
}

// The beginning of an answer is damaged, and refuses nothing. A part of a reply refuses if its status is none of an
// answer, and if nothing is known of refusals that speaks against it.
void RuleBook::judge_part(Asked& asked) const {
  if (!asked.shape.is_part) return;
  const uint16_t status = status_of(asked.answer.bytes);
  const bool is_form_of_refusals =
      !counts_.is_refusal_full || (!*counts_.is_refusal_full && counts_.refusal_status == status);
  asked.shape.is_refused = status != 0 && status != status_of_success() && is_form_of_refusals;
}

void RuleBook::take_values(const Asked& asked, const plc_sim::Request& request) {
  const ReplyShape& shape = asked.shape;
  if (request.kind != RequestKind::kRead || shape.is_refused) return;
  ++(!shape.is_complete ? counts_.values_shorter : shape.behind > 0 ? counts_.values_longer : counts_.values_exact);
  if (shape.is_complete && shape.behind > 0 && has_bytes_behind(asked)) ++counts_.values_behind_end;
  if (!shape.is_complete) return;
  ++values_seen_;
  ++bytes_behind_[shape.behind];
  note(kValueEnd, shape.behind == 0, asked, plc_base::plural(shape.behind, "byte") + " behind the values");
}

void RuleBook::take_shape(const Asked& asked, const plc_sim::Request& request) {
  const ReplyShape& shape = asked.shape;
  const uint16_t status = status_of(asked.answer.bytes);
  take_values(asked, request);
  if (is_write(request.kind)) return;  // judge_write says what its status is one of
  const std::string kind = plc_sim::name_of(request.kind);
  const bool is_directory_refused = request.kind == RequestKind::kDirectory && !shape.is_complete && status != 0;
  if (request.kind == RequestKind::kDirectory) ++counts_.directories;
  if (is_directory_refused) {
    ++counts_.directories_refused;
    counts_.directory_status = status;
  }
  note_status(asked, shape.is_refused || is_directory_refused ? kind + ", refused" : kind);
  if (!shape.is_refused) {
    const bool is_done = shape.is_complete;
    note(kWhole, is_done, asked, is_done ? "all that was asked for" : "some of it is missing");
    if (!is_done) return;
    ++statuses_done_[status];
    ++statuses_by_kind_[request.kind][status];
    note(kStatus, status == 0, asked, "status " + plc_base::hexadecimal(status, 4));
    if (request.kind == RequestKind::kResolve) ++handles_seen_;
    return;
  }
  take_refusal(asked, request.kind);
}

// One reply may have been damaged on its way: three in a row that are alike are the controller's.
void RuleBook::learn_refusal(uint16_t status, bool is_full) {
  constexpr unsigned kAlike = 3;
  const std::pair<uint16_t, bool> form(status, is_full);
  refusals_alike_ = last_refusal_ == form ? refusals_alike_ + 1 : 1;
  last_refusal_ = form;
  if (counts_.refusal_status || refusals_alike_ < kAlike) return;
  counts_.refusal_status = status;
  counts_.is_refusal_full = is_full;
}

void RuleBook::take_refusal(const Asked& asked, RequestKind kind) {
  const ReplyShape& shape = asked.shape;
  const uint16_t status = status_of(asked.answer.bytes);
  if (shape.is_full) ++(status != 0 ? full_refusals_ : full_refusals_unmarked_);
  if (kind != RequestKind::kResolve) return;
  learn_refusal(status, shape.is_full);
  note(kRefusal, !shape.is_full || status != 0, asked,
       std::string(shape.is_full ? "refused, with records for all names" : "refused, without records for all names") +
           ", status " + plc_base::hexadecimal(status, 4));
}

// The number of the reply, or of the last frame that came in its place.
void RuleBook::take_number(const Asked& asked, const Bytes& reply) {
  const ByteView head(reply);
  const unsigned sequence = head.u16(wire::kSequenceAt);
  const unsigned asked_sequence = ByteView(asked.request).u16(wire::kSequenceAt);
  const bool is_own = head.size() >= wire::kHeadBytes && sequence == asked_sequence;
  const std::string title = field_title("sequence number", std::to_string(sequence), std::to_string(asked_sequence));
  if (is_own) {
    note(kSequence, true, asked, title);
  } else {
    Asked other = asked;
    other.answer.bytes = reply;
    note_doubt(kSequence, other, title);
  }
  if (asked_sequence == 0) return;
  plc_sim::Findings ignored;
  Numbers& of_kind = numbers_by_kind_[plc_sim::parse_request(asked.request, ignored).kind];
  ++(is_own ? numbers_.own : numbers_.other);
  ++(is_own ? of_kind.own : of_kind.other);
}

bool RuleBook::is_rare(Id rule) const {
  const uint64_t doubts = rule == kSequence ? numbers_.other : doubts_[rule].broken;
  const uint64_t kept = rule == kSequence ? numbers_.own : rules_[rule].kept;
  return !is_surely_often(doubts, kept + doubts);
}

ReplyWait RuleBook::wait_for(const Bytes& request) const {
  constexpr int kShortMs = 50;  // for an own reply right behind a foreign one, as long as nothing is known
  plc_sim::Findings ignored;
  const auto of_kind = numbers_by_kind_.find(plc_sim::parse_request(request, ignored).kind);
  const bool has_no_own = of_kind != numbers_by_kind_.end() && of_kind->second.own == 0;
  const Numbers& numbers = has_no_own ? of_kind->second : numbers_;
  const int timeout_ms = static_cast<int>(wait_ms_);
  if (numbers.own > 0 && numbers.other * kRareOf <= numbers.own + numbers.other) return {timeout_ms, timeout_ms};
  const bool is_known = numbers.other > 1 && numbers.other > numbers.own;
  return {timeout_ms, is_known ? 0 : std::min(kShortMs, timeout_ms - 1)};
}

void RuleBook::take_foreign(const Asked& asked) {
  const std::vector<Bytes>& foreign = asked.answer.foreign;
  if (foreign.empty()) return;
  if (counts_.foreign == 0) first_seen_ = "a reply that is none of the request's";
  counts_.foreign += foreign.size();
  if (!asked.answer.has_come()) take_number(asked, foreign.back());
}

bool RuleBook::is_usual_surplus(size_t behind) const {
  const auto found = bytes_behind_.find(behind);
  return found != bytes_behind_.end() && found->second >= kEnoughValues && found->second * 2 > values_seen_;
}

bool RuleBook::has_usual_head(const Asked& asked) const {
  const ByteView head(asked.answer.bytes);
  if (head.size() < wire::kReplyHeadBytes) return false;
  const auto is_usual = [](const HeadCounts::Field& field) { return field.right > field.zero + field.other; };
  const auto own_length = static_cast<uint32_t>(head.size() - wire::kLengthExcludes);
  if (is_usual(counts_.length) && head.u32(0) != own_length) return false;
  if (is_usual(counts_.complement) && head.u32(4) != ~head.u32(0)) return false;
  const ByteView request(asked.request);
  if (is_usual(counts_.request_class) && head.u8(wire::kClassAt) != request.u8(wire::kClassAt)) return false;
  if (is_usual(counts_.command) && head.u8(wire::kCommandAt) != request.u8(wire::kCommandAt)) return false;
  return !is_usual(counts_.sequence) || head.u16(wire::kSequenceAt) == request.u16(wire::kSequenceAt);
}

// A part of a reply, or bytes without a head, answer nothing where most replies come whole.
bool RuleBook::take_unfinished(Asked& asked) {
  const ProbeReply& answer = asked.answer;
  if (!answer.has_come() || answer.end == ProbeReply::End::kWhole) return false;
  // The beginning of a head that is still to come says nothing of who sends it.
  const bool is_beginning = answer.end == ProbeReply::End::kSilent && answer.bytes.size() < wire::kHeadBytes;
  if (!is_beginning && rules_[kLength].kept <= counts_.unfinished) return false;
  ++counts_.unfinished;
  if (answer.end == ProbeReply::End::kQuiet) ++counts_.headless;
  if (answer.is_lost()) ++counts_.cut_off;
  asked.is_unfinished = true;
  note_doubt(kLength, asked, plc_base::plural(answer.bytes.size(), "byte") + " in all, and not its end");
  return true;
}

// A reply to a read that has values and a status, as long as no other one with values came: where these have no status
// it refuses, and three alike are the controller's answers.
bool RuleBook::is_open(RequestKind kind, const Asked& asked) const {
  constexpr size_t kMostOpen = 2;
  const uint16_t status = status_of(asked.answer.bytes);
  if (kind != RequestKind::kRead || status == 0 || !asked.shape.is_complete) return false;
  if (statuses_by_kind_.count(kind) > 0 || open_.size() >= kMostOpen) return false;
  return open_.empty() || status_of(open_.back().answer.bytes) == status;
}

void RuleBook::settle(bool are_refusals) {
  const Subject subject = subject_;
  for (Asked& asked : open_) {
    asked.is_open = false;
    asked.shape.is_complete = !are_refusals;
    asked.shape.is_refused = asked.shape.is_full = are_refusals;
    plc_sim::Findings ignored;
    const plc_sim::Request request = plc_sim::parse_request(asked.request, ignored);
    subject_ = subject_of(request);
    take_shape(asked, request);
    settled_.push_back(asked);
  }
  open_.clear();
  subject_ = subject;
}

std::vector<Asked> RuleBook::take_settled() { return std::exchange(settled_, {}); }

std::string RuleBook::take(Asked& asked) {
  first_seen_.clear();
  plc_sim::Findings ignored;
  const plc_sim::Request request = plc_sim::parse_request(asked.request, ignored);
  const bool follows_one = last_.has_value();
  if (follows_one) take_unasked(asked.answer.before);
  subject_ = subject_of(request);
  take_foreign(asked);
  if (take_unfinished(asked) || !asked.is_answered()) {
    ++counts_.replies_unanswered;
    last_.reset();
    return first_seen_;
  }
  ++counts_.replies;
  asked.shape = shape_of(request, asked.answer.bytes);
  refuse_by_status(request.kind, asked);
  judge_part(asked);
  // The first request is too short to tell.
  if (request.kind != RequestKind::kDirectoryStart) {
    ++(is_speech(asked.request, asked.answer, asked.shape) ? counts_.spoken : counts_.unspoken);
  }
  take_head(asked);
  last_ = asked;
  if (!follows_one) take_unasked(asked.answer.before);
  asked.is_open = is_open(request.kind, asked);
  if (asked.is_open) {
    open_.push_back(asked);
    return first_seen_;
  }
  if (request.kind == RequestKind::kRead && asked.shape.is_complete) settle(status_of(asked.answer.bytes) == 0);
  take_shape(asked, request);
  return first_seen_;
}

void RuleBook::judge_write(const Asked& asked, bool is_done) {
  if (!asked.is_answered()) return;
  plc_sim::Findings ignored;
  const std::string kind = plc_sim::name_of(plc_sim::parse_request(asked.request, ignored).kind);
  const uint16_t status = status_of(asked.answer.bytes);
  note_status(asked, is_done ? kind : kind + ", not done");
  if (!is_done) return;
  ++statuses_done_[status];
  subject_ = subject_of(plc_sim::parse_request(asked.request, ignored));
  note(kStatus, status == 0, asked, "status " + plc_base::hexadecimal(status, 4));
}

uint16_t RuleBook::status_of_success() const { return statuses_done_.empty() ? 0 : most_frequent(statuses_done_); }

void RuleBook::take_false_answer(const Asked& asked) {
  ++full_refusals_unmarked_;
  note(kRefusal, false, asked, "a name that the controller cannot have is answered like one that it has");
}

void RuleBook::take_unasked(Bytes bytes) {
  // Whole frames are told by their numbers, where replies repeat those.
  if (numbers_.own > 0 && is_rare(kSequence)) counts_.foreign += take_whole_frames(bytes).size();
  if (!bytes.empty() && last_) take_behind(bytes);
}

// The last reply is told as one with bytes behind it, once.
void RuleBook::take_behind(const Bytes& bytes) {
  counts_.bytes_unasked += bytes.size();
  if (has_more_behind_) return;
  has_more_behind_ = true;
  ++counts_.with_more_behind;
  Verdict::Rule& rule = rules_[kEnd];
  --rule.kept;
  const auto is_of_it = [this](const Frame& frame) { return frame.packet == last_->packet; };
  rule.evidence.erase(std::remove_if(rule.evidence.begin(), rule.evidence.end(), is_of_it), rule.evidence.end());
  plc_sim::Findings ignored;
  tallies_[kEnd].turn(subject_of(plc_sim::parse_request(last_->request, ignored)));
  Asked shown = *last_;
  shown.answer.bytes.insert(shown.answer.bytes.end(), bytes.begin(), bytes.end());
  note_in(rule, false, shown, plc_base::plural(bytes.size(), "byte") + " behind it");
}

// What every value reply has behind its values. Of few replies, or of one variable or two, it may be chance, or the tag
// file's mistake.
std::optional<uint32_t> RuleBook::common_surplus() const {
  if (bytes_behind_.size() != 1 || values_seen_ < kEnoughValues) return std::nullopt;
  const size_t behind = bytes_behind_.begin()->first;
  if (behind > 0 && !is_broken(kValueEnd)) return std::nullopt;
  return static_cast<uint32_t>(behind);
}

void RuleBook::finish() {
  settle(false);
  counts_.refusals_untold = full_refusals_unmarked_;
  if (!statuses_done_.empty()) counts_.status_done = most_frequent(statuses_done_);
  counts_.bytes_behind_values = common_surplus();
}

}  // namespace plc_host::survey
