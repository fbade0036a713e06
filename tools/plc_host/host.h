// What a command needs to talk to a controller: the library, a simulator where asked for, the tag file, the session.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "client/driver/driver_library.h"
#include "client/driver/driver_session.h"
#include "client/driver/work_folder.h"
#include "client/plan/tag_transfer.h"
#include "client/tags/tag_list.h"
#include "client/tags/tag_reference.h"
#include "tools/plc_host/client_names.h"
#include "tools/plc_host/command_output.h"
#include "tools/plc_host/host_options.h"
#include "tools/plc_host/sim_process.h"
#include "tools/plc_host/target/relay_route.h"
#include "tools/plc_host/target/tag_files.h"

namespace plc_host {

class Host {
 public:
  // Says where the driver connects to instead of the controller.
  using Reroute = std::function<Target(const Target& controller)>;

  // Loads the library, starts the simulator, makes the work folder, reads the tag file and gives the driver its
  // settings. Throws HostError and ClientError.
  Host(const HostOptions& options, CommandOutput& output, const Reroute& reroute = nullptr);

  DriverSession& session() { return *session_; }
  const DriverLibrary& library() const { return library_; }
  const TagList& tags() const { return tags_; }
  const TagFilePath& tag_file() const { return tag_file_; }
  FILE* results() const { return output_.results(); }
  ResultFile& result_file() const { return output_.result_file(); }

  // Shows what the simulator has printed. To be called between transfers.
  void show_simulator_lines();

  // Ends the simulator. Returns code, or kExitSimulator when code is kExitOk and the simulator ended with a failure.
  int finish(int code);

 private:
  Target choose_target(const HostOptions& options);
  TagFilePath choose_tag_file(const HostOptions& options, const Target& controller, const Target& target);

  void trace_frames(RelayRoute& route);

  CommandOutput& output_;
  DriverLibrary library_;
  std::unique_ptr<SimProcess> simulator_;
  std::unique_ptr<RelayRoute> route_;
  std::unique_ptr<WorkFolder> folder_;
  TagFilePath tag_file_;
  TagList tags_;
  std::unique_ptr<DriverSession> session_;
};

// The driver's lines go to standard error with -v, else nowhere.
DriverSession::LineSink usual_line_sink(const HostOptions& options);

// The variables that the command line names, in its order: all of the file with --all, then each name, and each
// variable that a pattern fits and no name before. One that cannot be looked up has no reference and says why.
std::vector<TagResult> look_up_names(const HostOptions& options, const Host& host);

// The exit code that a set of results gives; those that were not read count for nothing.
int exit_code_of(const std::vector<TagResult>& results, bool interrupted);

}  // namespace plc_host
