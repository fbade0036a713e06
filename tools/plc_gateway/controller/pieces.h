// The variables of each group cut into pieces that one call of the driver reads.
#pragma once

#include <vector>

#include "client/plc_client.h"
#include "tools/plc_gateway/model/variable.h"
#include "tools/plc_gateway/poll/schedule.h"

namespace plc_gateway {

// Every variable is in one piece, group by group. A piece takes the exchanges of one call, names and values, and so
// delays what comes next by no more; a variable that takes more by itself has a piece of its own. Within a piece
// variables are in their order. Throws plc_client::Error when a name is not known. Sends nothing.
std::vector<Piece> cut_into_pieces(const plc_client::Controller& controller, const std::vector<Variable>& variables);

// The names of the piece's variables.
std::vector<std::string> names_of(const Piece& piece, const std::vector<Variable>& variables);

}  // namespace plc_gateway
