// Everything that the command line can say.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "client/driver/program_names.h"
#include "tools/plc_host/client_names.h"
#include "tools/plc_host/settings/settings.h"

namespace plc_host {

// A variable that has no line yet, or a list of them.
struct NewTagOptions {
  bool wanted = false;
  std::string list;    // instead of one variable
  std::string output;  // else the lines go to standard output
  std::string after;   // the tag file that they are to follow
  std::string ranges;
  std::string length;
  std::string scope;  // the program of a local variable
  std::string program_number = "0";
  std::string device;
  uint32_t id = 0;
};

// The log of watch.
struct LogOptions {
  std::string file;  // empty: none
  uint64_t most_bytes = 0;
  bool daily = false;
  uint32_t kept = 0;  // 0: all of them
  double deadband = 0;
  bool every_round = false;
};

// A controller measured.
struct SurveyOptions {
  std::vector<std::string> tag_files;
  std::string folder;                // where the files go
  bool replaces = false;             // those of a former survey
  std::vector<std::string> written;  // names of scratch variables
  double hours = 0;
  uint32_t period_ms = 1000;
  bool has_period = false;
  bool has_hours = false;
  uint32_t rate = 20;  // requests a second at most
  bool has_rate = false;
  bool is_gentle = false;
};

struct HostOptions {
  std::map<std::string, std::string> given;  // settings of the command line, by their names
  Settings settings;                         // the same with all that others say

  // Everywhere
  std::string driver;  // contract, guarded or a path; empty: the best one that there is
  bool json = false;
  bool csv = false;
  bool raw = false;         // values alone
  bool text = false;        // said so: what is usual
  bool wide_texts = false;  // in JSON 64-bit integers as texts
  bool quiet = false;       // errors alone, no remarks
  int verbosity = 0;        // 1: the driver's lines, 2: the frames too

  // The controller
  std::string address;
  uint16_t port = 0;
  uint16_t area = 0;
  uint16_t capture_port = 0;  // of the controller in a capture; 0: whoever answers requests
  std::string tag_file;       // instead of the file that the driver would find in the working directory
  std::string sim_tag_file;
  std::string simulator;
  std::vector<std::string> sim_arguments;
  uint32_t timeout_s = 2;
  uint32_t delay_ms = 0;
  uint32_t most_names = 0;              // that the controller takes at a time; 0: no limit is known
  uint32_t most_names_of_contract = 0;  // the same of the contract build
  std::string word_on_contract;         // what the profile says of a contract build that is loaded; "" for nothing
  ProgramNames program_names;           // what is known of those in its directory
  // Names, with their programs, that the profile rules out for a guarded driver, and for one of the contract build.
  std::vector<std::pair<std::string, std::string>> absent_to_guarded;
  std::vector<std::pair<std::string, std::string>> absent_to_contract;

  // tags
  std::vector<std::string> listed;  // the tag file and names in it; with --new the name and the type
  bool names_only = false;
  NewTagOptions new_tags;

  // check
  std::vector<std::string> checked_files;
  bool sarif = false;
  bool errors_only = false;
  bool list_rules = false;
  bool live = false;        // ask a controller for each name
  bool overwrites = false;  // the corrected copy may replace a file that is there
  std::string fixed_file;   // where the corrected copy goes

  // read, write, batch, watch
  std::vector<std::string> names;  // for write: NAME=VALUE
  std::string names_file;          // with more of them
  size_t names_of_file = 0;        // the last of names
  bool all = false;
  bool verify = false;
  bool strict = false;   // every value good, or none shown
  bool dry_run = false;  // checked, not sent

  // read and why, by number
  bool by_id = false;
  uint32_t register_id = 0;
  uint32_t offset = 0;
  uint32_t count = 1;

  // watch
  uint32_t interval_ms = 500;
  uint32_t rounds = 0;  // 0: until a stop signal
  bool batch = false;
  std::string chart;
  LogOptions log;

  // survey
  SurveyOptions survey;

  // why
  std::string capture;    // instead of a controller
  std::string pcap_file;  // where the traffic goes
};

}  // namespace plc_host
