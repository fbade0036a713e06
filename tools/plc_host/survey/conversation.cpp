// Connects, paces, asks and counts.
#include "tools/plc_host/survey/conversation.h"

#include <algorithm>
#include <thread>

#include "tools/plc_host/stop_signal.h"
#include "wire/big_endian.h"
#include "wire/reply_parts.h"
#include "wire/request_writer.h"

namespace plc_host::survey {
namespace {

constexpr unsigned kMostSilences = 6;  // in a row, of three requests asked twice, before the controller counts as gone
constexpr unsigned kConnectAttempts = 5;  // controllers with few connections need a moment to be rid of the last one
constexpr std::chrono::milliseconds kBetweenAttempts{300};
constexpr size_t kMostGaps = 1000;
constexpr size_t kMostSplits = 100;
constexpr uint64_t kMostUnspoken = 60;  // replies that no controller gives, where no other came
constexpr char kInterrupted[] = "interrupted";
constexpr char kNoAnswer[] = "the controller no longer answers";

// Where bytes came that say no end, no wait was over.
void count_unanswered(Times& times, ProbeReply::End end) {
  const bool is_lost = end == ProbeReply::End::kClosed || end == ProbeReply::End::kReset;
  ++(is_lost ? times.lost : end == ProbeReply::End::kQuiet ? times.damaged : times.silent);
}

bool are_alike(const std::vector<wire_trace::Program>& some, const std::vector<wire_trace::Program>& others) {
  const auto is_same = [](const wire_trace::Program& one, const wire_trace::Program& other) {
    return one.number == other.number && one.name == other.name;
  };
  return std::equal(some.begin(), some.end(), others.begin(), others.end(), is_same);
}

}  // namespace

Conversation::Conversation(const SurveyPlan& plan, plc_sim::PcapngWriter& capture, SurveyRecord& record,
                           Progress& progress)
    : plan_(plan), capture_(capture), record_(record), progress_(progress), rules_(record.heads, plan.timeout_ms) {}

void Conversation::wait_for_turn() {
  const auto now = std::chrono::steady_clock::now();
  if (next_turn_ > now) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(next_turn_ - now);
    if (ignores_stop_) {
      std::this_thread::sleep_for(left);
    } else {
      wait_for_stop(left);
    }
  }
  if (!ignores_stop_ && stop_requested()) throw SurveyEnded(kInterrupted, true);
  next_turn_ = std::chrono::steady_clock::now() + std::chrono::microseconds(1000000 / plan_.rate);
}

std::unique_ptr<Probe> Conversation::extra_probe() { return std::make_unique<Probe>(capture_, ++connections_); }

// The one before it is closed first: it would be a second one otherwise, which a controller need not take.
std::string Conversation::connect_once() {
  if (probe_) rules_.take_unasked(probe_->drain());
  probe_.reset();
  auto probe = extra_probe();
  wait_for_turn();
  const wire_trace::Reach reach = probe->connect(plan_.address, plan_.port, static_cast<int>(plan_.timeout_ms));
  progress_.asked();
  if (!probe->is_open()) return reach.problem;
  const double took_ms = static_cast<double>(reach.took_ns) / 1e6;
  add_time("connect", 1, took_ms, took_ms);
  probe_ = std::move(probe);
  const Asked start = exchange("directory start", 1, plc_sim::directory_start_request());
  if (!start.is_answered()) return "no answer to the directory start";
  const Asked directory = exchange("directory", 1, plc_sim::directory_request());
  if (!directory.is_answered()) return "no answer to the directory";
  take_directory(directory);
  return {};
}

// One that was damaged on its way does not replace one that is whole, and has not changed.
void Conversation::take_directory(const Asked& asked) {
  const plc_sim::Bytes& bytes = asked.answer.bytes;
  if (!asked.shape.is_complete || !rules_.has_usual_head(asked)) {
    if (!has_directory_ && (directory_.empty() || asked.shape.is_complete)) directory_ = bytes;
    return;
  }
  if (has_directory_ && !are_alike(wire_trace::programs_of(bytes), wire_trace::programs_of(directory_))) {
    ++record_.programs.changes;
  }
  has_directory_ = true;
  directory_ = bytes;
}

void Conversation::connect_again() {
  std::string problem;
  for (unsigned attempt = 0; attempt < kConnectAttempts; ++attempt) {
    probe_.reset();
    problem = connect_once();
    if (problem.empty()) return;
    if (!ignores_stop_) wait_for_stop(kBetweenAttempts);
  }
  probe_.reset();
  throw SurveyEnded(std::string(kNoAnswer) + ": " + problem, false);
}

const plc_sim::Bytes& Conversation::directory() {
  if (!probe_ || !probe_->is_open()) connect_again();
  return directory_;
}

Asked Conversation::exchange(const std::string& kind, uint32_t names, const plc_sim::Bytes& request) {
  wait_for_turn();
  Asked asked;
  asked.request = request;
  asked.packet = capture_.packets() + 1;
  asked.answer = exchange_over(*probe_, request);
  account(kind, names, asked);
  if (!asked.is_answered()) count_unanswered(times_of(kind, names), asked.answer.end);
  progress_.asked();
  const HeadCounts& heads = record_.heads;
  if (heads.spoken == 0 && heads.unspoken > 0 && heads.replies >= kMostUnspoken) throw SurveyEnded(kForeign, false);
  // What comes late must not be taken for the answer to another request.
  if (asked.answer.end == ProbeReply::End::kSilent) probe_->close();
  return asked;
}

void Conversation::account(const std::string& kind, uint32_t names, Asked& asked) {
  const std::string shown_first = rules_.take(asked);
  if (!shown_first.empty()) capture_.comment(shown_first);
  count_settled();
  if (asked.is_answered() && !asked.is_open) count_refusal(kind, asked);
  const bool has_ended = asked.answer.end == ProbeReply::End::kWhole || asked.answer.end == ProbeReply::End::kQuiet;
  if (!asked.is_answered() || !has_ended) return;
  if (!asked.shape.is_refused) add_time(kind, names, asked.answer.pieces.front().at_ms, asked.answer.took_ms());
  add_split(asked.answer);
}

void Conversation::count_refusal(const std::string& kind, const Asked& asked) {
  const ReplyShape& shape = asked.shape;
  if (shape.is_refused || shape.is_complete) refusals_.take(kind, asked.request, shape.is_refused);
  if (kind == "resolve" && !shape.is_refused && !shape.is_complete) ++record_.heads.names_shorter;
}

void Conversation::count_settled() {
  for (const Asked& asked : rules_.take_settled()) count_refusal("read", asked);
}

void Conversation::finish() {
  rules_.finish();
  count_settled();
}

Asked Conversation::try_asking(const std::string& kind, uint32_t names, const plc_sim::Bytes& request) {
  if (probe_) rules_.take_unasked(probe_->drain());
  if (!probe_ || !probe_->is_open()) connect_again();
  Asked asked = exchange(kind, names, request);
  const unsigned sent = plc_sim::ByteView(request).u16(plc_sim::wire::kSequenceAt);
  sequence_ = static_cast<uint16_t>(sent + 1);
  return asked;
}

Asked Conversation::ask(const std::string& kind, uint32_t names, const plc_sim::Bytes& request) {
  Asked asked = try_asking(kind, names, request);
  // A connection that had ended before the request says nothing of it. Names alone are asked for anew: what follows
  // them belongs to the names before it.
  const bool is_first = kind == "resolve";
  if (is_first && !asked.is_answered() && asked.answer.is_lost()) asked = try_asking(kind, names, request);
  if (asked.is_answered()) {
    silences_ = 0;
    has_asked_several_ = false;
    if (is_first && names == 1 && asked.shape.is_complete) one_name_ = asked.request;
    return asked;
  }
  ++silences_;
  has_asked_several_ = has_asked_several_ || names > 1;
  if (silences_ < kMostSilences) return asked;
  // Silence may be what a controller answers to more than it takes.
  if (!has_asked_several_ || !answers_one_name()) throw SurveyEnded(kNoAnswer, false);
  silences_ = 0;
  has_asked_several_ = false;
  return asked;
}

bool Conversation::answers_one_name() {
  if (one_name_.empty()) return false;
  plc_sim::Bytes request = one_name_;
  plc_sim::put_u16(request, plc_sim::wire::kSequenceAt, sequence_);
  return try_asking("resolve", 1, request).is_answered();
}

Times& Conversation::times_of(const std::string& kind, uint32_t names) {
  const auto [at, is_new] = times_.insert({{kind, names}, record_.times.size()});
  if (is_new) record_.times.push_back({kind, names, {}, {}});
  return record_.times[at->second];
}

void Conversation::add_time(const std::string& kind, uint32_t names, double first_ms, double ms) {
  Times& times = times_of(kind, names);
  times.ms.push_back(ms);
  times.first_ms.push_back(first_ms);
}

void Conversation::add_split(const ProbeReply& reply) {
  const auto [at, is_new] = splits_.insert({reply.bytes.size(), record_.splits.size()});
  if (is_new) record_.splits.push_back({reply.bytes.size(), {}, {}});
  Split& split = record_.splits[at->second];
  std::vector<size_t> sizes;
  for (const ReplyPiece& piece : reply.pieces) sizes.push_back(piece.bytes);
  if (split.pieces.size() < kMostSplits || split.pieces.count(sizes) > 0) ++split.pieces[sizes];
  for (size_t i = 1; i < reply.pieces.size() && split.gap_ms.size() < kMostGaps; ++i) {
    split.gap_ms.push_back(reply.pieces[i].at_ms - reply.pieces[i - 1].at_ms);
  }
}

}  // namespace plc_host::survey
