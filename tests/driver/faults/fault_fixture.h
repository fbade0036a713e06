// The fixture of tests that make the driver's calls fail: a controller that always answers, tag files, and transfers
// by name.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "plc_driver.h"
#include "tests/driver/faults/answering_peer.h"
#include "tests/driver/faults/fault_calls.h"
#include "tests/support/captured_output.h"
#include "tests/support/temp_dir.h"

namespace plc_test {

enum class Transfer { kRead, kWrite, kBitWrite, kBatch };
constexpr Transfer kTransfers[] = {Transfer::kRead, Transfer::kWrite, Transfer::kBitWrite, Transfer::kBatch};

const char* name_of(Transfer transfer);

// What one watched call gave.
struct Seen {
  uint32_t result = 0;
  std::string lines;
  CallWatch calls;
};

class FaultFixture : public ::testing::Test {
 public:
  FaultFixture();
  ~FaultFixture() override;

  // One transfer without watching or capturing.
  uint32_t run_plainly(Transfer transfer);

 protected:
  // Back to the state after loading, tables freed, sockets of the driver closed; then ev_plc_init.
  void start_over();

  // One transfer on area 0, with what it prints and does. Values received go to value_.
  Seen run(Transfer transfer);
  Seen run(Transfer transfer, const Fault& fault);
  Seen run(Transfer transfer, const Fault* faults, size_t count);

  // Frees the tables as their owner would; the blocks that the driver still held.
  static long free_tables();

  // Sockets that the driver has stored and not closed.
  static int stored_sockets();

  TempDir folder_;
  ScopedWorkingDirectory inside_{folder_.path()};
  AnsweringPeer peer_;
  CommSettings settings_{};
  ConnContext conn_{};
  uint32_t value_ = 0;
};

}  // namespace plc_test
