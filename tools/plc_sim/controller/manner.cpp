// Gives a delivery the manner of a controller.
#include "tools/plc_sim/controller/manner.h"

#include <algorithm>
#include <utility>

namespace plc_sim {
namespace {

void append_pieces(const Manner& manner, Delivery::Piece piece, std::vector<Delivery::Piece>& pieces) {
  const size_t size = manner.piece_bytes == 0 ? piece.bytes.size() : manner.piece_bytes;
  unsigned wait_ms = piece.wait_ms;
  for (size_t at = 0; at < piece.bytes.size(); at += size) {
    const auto begin = piece.bytes.begin() + static_cast<std::ptrdiff_t>(at);
    const size_t count = std::min(size, piece.bytes.size() - at);
    pieces.push_back({wait_ms, Bytes(begin, begin + static_cast<std::ptrdiff_t>(count))});
    wait_ms = manner.gap_ms;
  }
}

}  // namespace

Delivery in_manner(const Manner& manner, Delivery delivery) {
  if (manner.is_withheld) return {{}, manner.then, manner.damage};
  Delivery changed{{}, delivery.then, std::max(delivery.damage, manner.damage)};
  for (Delivery::Piece& piece : delivery.pieces) append_pieces(manner, std::move(piece), changed.pieces);
  if (!changed.pieces.empty()) changed.pieces.front().wait_ms += manner.wait_ms;
  // A host that takes the first piece for the whole may run ahead.
  if (changed.pieces.size() > delivery.pieces.size()) changed.damage = ReplyDamage::kTheStream;
  return changed;
}

}  // namespace plc_sim
