// Answers requests as a captured controller did.
#include "tools/plc_sim/server/replay.h"

#include <algorithm>

#include "tools/plc_sim/controller/judge.h"
#include "tools/plc_sim/controller/reply.h"
#include "wire/big_endian.h"

namespace plc_sim {
namespace {

// Replies have at most 4096 bytes; what a capture holds beyond a few of them at once is no controller's.
constexpr size_t kMostReplyBytes = 16384;

bool same_but_sequence(const Bytes& a, const Bytes& b, size_t compared) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < std::min(a.size(), compared); ++i) {
    const bool is_sequence = i == wire::kSequenceAt || i == wire::kSequenceAt + 1;
    if (!is_sequence && a[i] != b[i]) return false;
  }
  return true;
}

}  // namespace

const Exchange* Replay::find(const Bytes& frame) {
  const size_t everything = frame.size();
  const size_t without_values = kind_of(frame) == RequestKind::kWrite ? wire::kWriteHeadBytes : everything;
  for (const size_t compared : {everything, without_values}) {
    for (size_t i = 0; i < exchanges_.size(); ++i) {
      const size_t at = (next_ + i) % exchanges_.size();
      if (!exchanges_[at].reply.empty() && same_but_sequence(exchanges_[at].request, frame, compared)) {
        next_ = at + 1;
        return &exchanges_[at];
      }
    }
  }
  return nullptr;
}

Answer Replay::handle(Session& session, const Bytes& frame) {
  Answer answer;
  const Request request = parse_request(frame, answer.findings);
  answer.kind = request.kind;
  session.has_resolved = session.has_resolved || request.kind == RequestKind::kResolve;
  if (frame.size() >= wire::kHeadBytes) judge_order(session, request, answer.findings);
  if (session.refusal) {
    answer.reply = make_reply(frame, *session.refusal, {});
    return answer;
  }
  const Exchange* exchange = find(frame);
  if (exchange == nullptr) {
    answer.findings.refused.push_back(std::string("a ") + name_of(request.kind) +
                                      " request that is not in the capture");
    answer.reply = make_reply(frame, wire::kStatusBadRequest, {});
    return answer;
  }
  answer.reply = ByteView(exchange->reply).part(0, kMostReplyBytes).bytes();
  const ByteView request_view(frame);
  if (request_view.size() >= wire::kSequenceAt + 2) {
    put_u16(answer.reply, wire::kSequenceAt, request_view.u16(wire::kSequenceAt));
  }
  return answer;
}

}  // namespace plc_sim
