// What a controller holds, how its values move, and the configurations that a gateway is given for it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tests/tools/plc_gateway/simulation/world/random.h"
#include "tools/plc_gateway/node/edge_node.h"

namespace plc_gateway::simulation {

// A variable of the controller. Two may have one name with different types: a configuration has one of them at most.
struct Held {
  std::string name;
  DataType type = DataType::kInt16;
  std::vector<size_t> shape;
  unsigned moves_percent = 0;  // how often a reading finds another value
  size_t text_bytes = 20;      // at most
  bool refused = false;        // the controller refuses its name
  uint64_t bits = 0;
  std::string bytes;
};

// How fast a life is lived: minutes with a poll every few milliseconds, or hours with one every few seconds.
struct Pace {
  explicit Pace(Random& random);

  Ms shortest_period = 10000;
  Ms longest_period = 120000;
  Ms length = 0;
  Ms calm_least = 1000;  // between two troubles
  Ms calm_most = 0;
  Ms trouble_most = 0;  // how long one lasts
  bool has_big_texts = false;
};

struct Configuration {
  std::vector<Variable> variables;
  std::vector<size_t> held;  // which one of the plant each of them is
  std::vector<Ms> periods;
  std::vector<Piece> pieces;
  std::vector<CommandRule> rules;
};

class Plant {
 public:
  Plant(Random& random, const Pace& pace);

  // Some of the variables, in groups and pieces of their own.
  Configuration configuration(Random& random) const;

  // The value may have moved since the last look.
  const Held& look(size_t held, Random& random);
  // Values stand still from now on.
  void freeze() { frozen_ = true; }
  void write(const std::string& name, const plc_client::Input& value);

  std::vector<Held>& all() { return all_; }

 private:
  void add(const char* name, DataType type, std::vector<size_t> shape, Random& random);
  static void move(Held& held, Random& random);

  Pace pace_;
  std::vector<Held> all_;
  bool frozen_ = false;
};

}  // namespace plc_gateway::simulation
