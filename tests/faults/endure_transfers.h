// The transfers of the endurance run: a host that reads and writes at random while plc-sim does wrong at random, and
// what must hold meanwhile.
#ifndef TESTS_FAULTS_ENDURE_TRANSFERS_H
#define TESTS_FAULTS_ENDURE_TRANSFERS_H

#include <cstdint>
#include <cstdio>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "faults/exchange_tap.h"
#include "faults/reply_order.h"
#include "plc_driver.h"
#include "support/sim_process.h"
#include "support/temp_dir.h"

namespace plc_test {

class EnduranceHost {
 public:
  // In the working directory; writes its tag file there.
  EnduranceHost(const TempDir& folder, uint32_t seed);
  EnduranceHost(const EnduranceHost&) = delete;
  EnduranceHost& operator=(const EnduranceHost&) = delete;
  ~EnduranceHost();

  static const char* file_name();

  // One transfer, with whatever is due before it. False when something was seen that may not be.
  bool run_one();

  void print_figures(std::FILE* out);
  // The first thing that may not be, with the exchanges before it.
  void print_error(std::FILE* out) const;
  bool is_plausible() const;  // that things happened in this run

 private:
  static void on_exchange(void* host, const Exchange& exchange);

  uint32_t below(uint32_t bound) { return static_cast<uint32_t>(random_() % bound); }
  void tell(const std::string& command);
  void fail(const std::string& what);

  void schedule();
  void begin_faults();
  void end_faults();
  std::string due_faults();
  std::string random_fault();
  std::string random_conditions();

  void pause_sometimes();
  void transfer();
  void single(bool is_write);
  void batch();
  void finish_call(const std::string& what, uint32_t result, int32_t socket_before);
  void count_left_open(int32_t socket_before);

  void restore_memory();
  void forget(uint32_t id);
  void learn(uint32_t id, uint32_t offset, uint32_t count, const uint8_t* data);
  void check_values(uint32_t id, uint32_t offset, uint32_t count, const uint8_t* data);
  void check_decoding(uint32_t id, uint32_t count, const uint8_t* data);
  void check_element(uint32_t id, uint32_t element, uint32_t value);
  void count_misled_read(uint32_t id, const uint8_t* data);

  std::mt19937 random_;
  RunningSim sim_;
  ReplyOrder order_;
  CommSettings settings_{};
  ConnContext conn_{-1, 0, 1, 0, 0};

  uint32_t to_faults_ = 1;  // transfers until faults begin, and until they end
  uint32_t to_end_ = 0;
  bool takes_time_ = false;
  unsigned long transfers_ = 0;

  // What the controller holds, as far as writes in step tell; by id, element by element.
  std::vector<std::vector<std::optional<uint32_t>>> known_;
  bool is_memory_known_ = false;

  std::string error_;
  std::map<uint32_t, unsigned long> results_;
  unsigned long faults_ = 0;
  unsigned long left_open_ = 0;
  unsigned long checked_values_ = 0;
  unsigned long misled_reads_ = 0;  // reads of the constant that returned 0 with another value, out of step
};

}  // namespace plc_test

#endif
