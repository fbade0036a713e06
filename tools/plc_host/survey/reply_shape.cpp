// Takes replies apart as far as their sizes and heads tell.
#include "tools/plc_host/survey/reply_shape.h"

#include <algorithm>

#include "wire/big_endian.h"
#include "wire/names.h"
#include "wire/reply_parts.h"

namespace plc_host::survey {
namespace {

namespace wire = plc_sim::wire;
using plc_sim::Bytes;
using plc_sim::ByteView;
using plc_sim::RequestKind;

constexpr size_t kProgramsAt = 14;
constexpr size_t kOneGroupAt = 14;  // of names, with their number behind it

// Where the records of so many names end.
size_t records_end(const ByteView& reply, size_t names) {
  constexpr size_t kGroupBytes = 4;
  size_t at = wire::kResolveHeadBytes;
  for (size_t i = 0; i < names && at < reply.size(); ++i) {
    at += wire::kResolveRecordBytes + kGroupBytes * reply.u8(at + wire::kRecordDimensionsAt);
  }
  return at;
}

// Where the programs end that a directory counts: a head, a name and one byte for each.
size_t programs_end(const ByteView& reply) {
  constexpr size_t kStatedAt = 2;
  constexpr size_t kBytesBesideStated = 4;
  size_t at = kProgramsAt + 1;
  for (unsigned left = reply.u8(kProgramsAt); left > 0 && at < reply.size(); --left) {
    at += reply.u8(at + kStatedAt) + kBytesBesideStated;
  }
  return at;
}

ReplyShape shape_of_directory(const Bytes& reply) {
  const ByteView view(reply);
  ReplyShape shape;
  shape.is_complete = reply.size() > kProgramsAt && wire_trace::programs_of(reply).size() == view.u8(kProgramsAt);
  shape.is_exact = shape.is_complete && view.u8(kProgramsAt) > 0 && programs_end(view) == reply.size();
  return shape;
}

ReplyShape shape_of_names(const plc_sim::Request& request, const Bytes& reply) {
  size_t names = 0;
  for (const plc_sim::NameBlock& block : request.blocks) names += block.names.size();
  const std::vector<wire_trace::NameRecord> records = wire_trace::records_of(reply, names);
  const auto is_here = [](const wire_trace::NameRecord& record) { return record.is_received; };
  const auto is_null = [](const wire_trace::NameRecord& record) { return record.handle.is_null(); };
  ReplyShape shape;
  const bool has_all = std::all_of(records.begin(), records.end(), is_here);
  shape.is_complete = has_all && std::none_of(records.begin(), records.end(), is_null);
  shape.is_part = !has_all && reply.size() > wire::kReplyHeadBytes;
  shape.is_refused = !shape.is_complete;
  shape.is_full = shape.is_refused && has_all;
  const ByteView view(reply);
  const bool is_counted = view.u8(kOneGroupAt) == 1 && view.u16(kOneGroupAt + 1) == names;
  shape.is_exact = shape.is_complete && is_counted && records_end(view, names) == reply.size();
  return shape;
}

ReplyShape shape_of_values(const plc_sim::Request& request, const Bytes& reply) {
  const size_t asked = wire_trace::values_bytes(request);
  const size_t came = reply.size() - std::min(reply.size(), wire::kReplyHeadBytes);
  ReplyShape shape;
  shape.is_complete = came >= asked;
  shape.is_refused = came == 0 && asked > 0 && status_of(reply) != 0;
  shape.behind = came - std::min(came, asked);
  return shape;
}

}  // namespace

uint16_t status_of(const Bytes& reply) { return ByteView(reply).u16(wire::kStatusAt); }

ReplyShape shape_of(const plc_sim::Request& request, const Bytes& reply) {
  ReplyShape shape;
  switch (request.kind) {
    case RequestKind::kResolve:
      return shape_of_names(request, reply);
    case RequestKind::kRead:
      return shape_of_values(request, reply);
    case RequestKind::kDirectory:
      return shape_of_directory(reply);
    default:
      shape.is_complete = !reply.empty();
      return shape;
  }
}

// A controller that does not repeat class and command is known by what it was asked for: with the request's number, for
// a name in a frame that ends with it, and else by records that count and fill the reply exactly. A write gets nothing
// of the kind.
bool is_speech(const Bytes& request, const ProbeReply& answer, const ReplyShape& shape) {
  const ByteView sent(request);
  const ByteView head(answer.bytes);
  if (answer.bytes == request || head.size() < wire::kHeadBytes) return false;
  const unsigned number = sent.u16(wire::kSequenceAt);
  const bool is_numbered = number != 0 && head.u16(wire::kSequenceAt) == number;
  plc_sim::Findings ignored;
  const RequestKind kind = plc_sim::parse_request(request, ignored).kind;
  const bool is_asked_for =
      kind == RequestKind::kResolve || kind == RequestKind::kRead || kind == RequestKind::kDirectory;
  const bool has_all = is_asked_for && shape.is_complete;
  const bool is_whole =
      answer.end == ProbeReply::End::kWhole && uint64_t{head.u32(0)} + wire::kLengthExcludes == head.size();
  if (head.u16(wire::kClassAt) == sent.u16(wire::kClassAt)) return is_whole || is_numbered || has_all;
  return has_all && (is_numbered || shape.is_exact || (is_whole && kind == RequestKind::kResolve));
}

}  // namespace plc_host::survey
