// Reads many variables through the driver's batch read.
#ifndef HOST_TOOL_BATCH_TRANSFER_H_
#define HOST_TOOL_BATCH_TRANSFER_H_

#include <functional>
#include <string>
#include <vector>

#include "tag_transfer.h"

namespace plc_host {

// What a batch read took.
struct BatchFigures {
  size_t batches = 0;
  size_t slots = 0;
  size_t single_reads = 0;  // variables that the batch read cannot deliver
};

// Reads all variables, results in their order. What the batch read cannot deliver is read singly; stop is asked before
// each call and ends the reading when it says so: what was not read then has an error.
std::vector<TagResult> read_tags_batched(DriverSession& session, const std::vector<TagReference>& references,
                                         const std::function<bool()>& stop, BatchFigures& figures);

}  // namespace plc_host

#endif  // HOST_TOOL_BATCH_TRANSFER_H_
