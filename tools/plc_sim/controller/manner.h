// How a reply leaves: when, in which pieces, or not at all.
#pragma once

#include <cstddef>

#include "tools/plc_sim/controller/faults.h"

namespace plc_sim {

struct Manner {
  unsigned wait_ms = 0;
  size_t piece_bytes = 0;  // 0: whole
  unsigned gap_ms = 0;     // between two pieces
  bool is_withheld = false;
  AfterDelivery then = AfterDelivery::kKeepOpen;
  ReplyDamage damage = ReplyDamage::kNone;
};

// What is sent, faults included, in this manner.
Delivery in_manner(const Manner& manner, Delivery delivery);

}  // namespace plc_sim
