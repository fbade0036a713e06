// The gateway's configuration: one TOML file for one controller, checked as a whole before anything runs.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "base/toml/findings.h"
#include "tools/plc_gateway/model/variable.h"

namespace plc_gateway {

struct PollGroup {
  Ms every_ms = 1000;
  std::vector<std::string> names;  // as written: globs and references
  double deadband = 0;
};

struct Config {
  std::string file;

  std::string device;  // [controller] name
  plc_client::Options controller;
  bool accept_unguarded = false;  // values that a driver without checks gives
  std::string tag_address;        // by which its tag files were found: its own, or theirs while nobody knows its own

  std::string broker_host;
  uint16_t broker_port = 1883;
  bool tls = false;
  std::string username, password_file, ca_file, cert_file, key_file;
  uint32_t keep_alive_s = 10;
  bool mqtt5 = false;

  std::string group, edge_node, primary_host;
  std::string json_topic;  // with {name}; empty: none

  std::vector<PollGroup> polls;
  std::vector<CommandRule> commands;

  std::string journal_folder;
  uint64_t journal_bytes = 512ULL << 20;

  std::string metrics_host;  // empty: none
  uint16_t metrics_port = 0;

  // Made of the above with the tag files: what is polled, in the order of the groups and their names. A variable that
  // several groups name belongs to the first of them.
  std::vector<Variable> variables;
  size_t left_out = 0;  // variables that patterns fit and that cannot be polled
};

using plc_toml::Finding;

// Where things stand that the broker's room has a say in; line 0 for those that are not there.
struct BrokerPlaces {
  plc_toml::Place url, password_file, ca_file, cert_file, key_file;
};

struct ConfigResult {
  Config config;
  BrokerPlaces places;
  plc_toml::Place journal_place;  // of [journal] folder, in whose files the journal's room has a say; line 0: nowhere
  std::vector<Finding> findings;
  bool ok() const;  // no finding is an error
};

// Never throws for what stands in the file.
ConfigResult load_config(const std::string& file);

}  // namespace plc_gateway
