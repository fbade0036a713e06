// A list of variables with the calls that read it, made once and run again and again.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "client/driver/driver_session.h"
#include "client/plan/batch_plan.h"
#include "client/tags/tag_reference.h"
#include "client/values/reading.h"
#include "client/values/value_text.h"

namespace plc_client::core {

// A variable of the list, and what the last run read.
struct PlannedVariable {
  TagReference reference;
  uint16_t area = 0;
  // It was refused by itself, or batches with it were without a culprit: it is read by itself from then on.
  bool is_alone = false;
  std::string impossible;  // why neither tag file nor driver can ask for it; empty when they can

  TagValue value;
  bool has_failed = false;
  bool is_spoilt = false;  // a batch with it failed, and the connection stayed
  Failure failure;         // of meaning when has_failed
  WallTime time{};
};

// One call of the driver.
struct ReadStep {
  uint16_t area = 0;
  size_t exchanges = 0;
  // A batch: its slots name variables of the list.
  Batch slots;
  std::vector<BatchReadRequest> requests;
  // Else a read of one variable, in the driver's units.
  size_t variable = 0;
  uint32_t offset = 0;
  uint32_t count = 0;
  uint32_t elements = 0;  // 0 for text and bytes
  bool is_batch() const { return !requests.empty(); }
};

struct ReadPlan {
  std::vector<PlannedVariable> variables;
  std::vector<ReadStep> steps;
  GuardedBuffer buffer{0};  // of all single reads
  RequestRules rules;
  unsigned riddles = 0;   // runs in a row in which a batch failed of which each variable could be read
  bool is_stale = false;  // a variable has become is_alone since the steps were made
};

// Works out the steps: the fewest exchanges among reading variables singly and together.
void plan_steps(ReadPlan& plan);

// Exchanges of a run in which nothing fails, without those of the connect.
size_t exchange_count(const ReadPlan& plan);

// Reads all variables. Allocates nothing as long as nothing fails. A step before which the connection was found dead is
// made once more; after silence, or two losses in a row, the others stay unread and say why.
// Returns the exchanges of the steps that were answered.
size_t run_plan(DriverSession& session, ReadPlan& plan);

// Marks every variable as not read, for this reason.
void leave_unread(ReadPlan& plan, const Failure& failure);

}  // namespace plc_client::core
