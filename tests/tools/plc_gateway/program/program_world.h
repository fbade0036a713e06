// A simulated controller, a broker and plc-gateway, each a program of its own, with their files in a folder.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/loopback.h"
#include "tests/support/sim_process.h"
#include "tests/support/temp_dir.h"
#include "tests/tools/plc_host/program_child.h"

namespace gateway_test {

class ProgramWorld {
 public:
  ProgramWorld();

  // The controller, with the variables Motor.Speed (DINT) and Motor.Name (STRING of 20), at the same port each time.
  void start_controller();
  void stop_controller() { controller.reset(); }
  // Further lines of the broker's configuration; at the same port each time.
  void start_broker(const std::string& lines = "allow_anonymous true\n");
  void stop_broker();

  // The configuration's text. `changes` are pairs: a text in it and what stands there instead.
  std::string config(const std::vector<std::pair<std::string, std::string>>& changes = {}) const;
  // Writes it and returns its path.
  std::string write_config(const std::vector<std::pair<std::string, std::string>>& changes = {}) const;
  void start_gateway(const std::vector<std::pair<std::string, std::string>>& changes = {});
  // A command that ends by itself.
  plc_host_test::Outcome run(const std::vector<std::string>& words) const;
  // Ends the gateway with SIGTERM; its exit code.
  int end_gateway();
  std::string out() const { return folder.read("gateway.out"); }
  std::string log() const { return folder.read("gateway.err"); }
  // Whether the log comes to hold this text.
  bool logs(const std::string& text) const { return gateway->wait_for(text); }
  // The head and the body that the gateway's own port gives for a path.
  std::string page(const std::string& path) const;

  plc_test::TempDir folder;
  std::unique_ptr<plc_test::RunningSim> controller;
  std::unique_ptr<plc_host_test::Child> broker;
  std::unique_ptr<plc_host_test::Child> gateway;
  uint16_t controller_port = 0;
  uint16_t broker_port = 0;

 private:
  plc_test::HeldPort controllers_port_;
  plc_test::HeldPort brokers_port_;
};

}  // namespace gateway_test
