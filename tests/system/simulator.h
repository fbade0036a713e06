// A plc-sim of a test's own: started with a tag file, spoken to over its standard input, ended with the object.
#ifndef TESTS_SYSTEM_SIMULATOR_H
#define TESTS_SYSTEM_SIMULATOR_H

#include <sys/types.h>

#include <cstdint>
#include <cstdio>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace plc_test {

// One element of the simulated memory.
struct SimElement {
  std::string name;             // with subscripts, local ones behind PROGRAM/
  std::vector<uint16_t> words;  // as they travel; of a BOOL one word, 0 or 1
  bool operator==(const SimElement& other) const { return name == other.name && words == other.words; }
};

class Simulator {
 public:
  // Starts plc-sim in sentinel mode. Fails the process when it does not come up.
  explicit Simulator(const std::string& tag_file);
  Simulator(const Simulator&) = delete;
  Simulator& operator=(const Simulator&) = delete;
  ~Simulator();

  uint16_t port() const { return port_; }

  // The lines of the answer, without its "ok".
  std::vector<std::string> ask(const std::string& command);

  // The whole memory, by element name.
  std::map<std::string, SimElement> memory();

  // A count of the simulator, "violations" or "fault.close".
  uint64_t count(const std::string& name);

  // Ends the program. Returns its exit code.
  int finish();

 private:
  std::string read_line();

  pid_t process_ = -1;
  FILE* commands_ = nullptr;
  FILE* answers_ = nullptr;
  uint16_t port_ = 0;
};

}  // namespace plc_test

#endif  // TESTS_SYSTEM_SIMULATOR_H
