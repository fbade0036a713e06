// Builds replies: the head shaped as the request's, a status, and the body of each kind.
#pragma once

#include <cstdint>
#include <vector>

#include "tools/plc_sim/controller/session.h"
#include "tools/plc_sim/variables/variables.h"
#include "wire/big_endian.h"
#include "wire/wire.h"

namespace plc_sim {

// Head with sequence number, class and command of the request, and the body behind it; longer replies are cut to
// what a host takes in one piece.
Bytes make_reply(const Bytes& request, uint16_t status, const Bytes& body);

// One record per program; programs that no longer fit the largest reply are left out.
Bytes directory_body(const std::vector<Program>& programs);

// One record per name, with a group of four bytes for each dimension where that still fits one reply; names beyond
// the largest reply get none.
Bytes resolve_body(const std::vector<ResolvedName>& names);

}  // namespace plc_sim
