// What the simulator's tests share: a controller over a few tag lines.
#pragma once

#include <map>
#include <string>
#include <string_view>

#include "tests/support/bytes.h"
#include "tools/plc_sim/controller/controller.h"

namespace plc_sim::test {

using plc_test::from_hex;
using plc_test::to_hex;

// A controller with the variables of some tag lines and one connection whose directory was already fetched.
struct Bench {
  explicit Bench(const std::string& tag_lines, const std::map<std::string, uint8_t>& programs = {});

  Answer ask(std::string_view frame) { return controller.handle(session, from_hex(frame)); }
  Answer ask(const Bytes& frame) { return controller.handle(session, frame); }
  // The value of a variable as the show command prints it.
  std::string value(const std::string& name);

  VariableStore store;
  Controller controller{store};
  Session session;
};

}  // namespace plc_sim::test
