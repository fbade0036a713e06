// Reads many variables through the driver's batch read.
#pragma once

#include <functional>
#include <vector>

#include "client/plan/tag_transfer.h"

namespace plc_client::core {

// What a batch read took.
struct BatchFigures {
  size_t batches = 0;
  size_t slots = 0;
  size_t single_reads = 0;  // variables that the batch read cannot deliver
};

// Reads the variables that were found. What the batch read cannot deliver is read singly. A batch that fails while the
// connection stays is read again in halves, so that a variable which the controller refuses costs no other its value.
// stop is asked before each call; after a stop signal, and once patience is over, the others stay unread and say why.
BatchFigures read_tags_batched(DriverSession& session, std::vector<TagResult>& results,
                               const std::function<bool()>& stop);

}  // namespace plc_client::core
