// The command that follows one value from the tag file to the wire and back, and says where it went wrong.
#include "tools/plc_host/commands/commands.h"
#include "tools/plc_host/exit_codes.h"
#include "tools/plc_host/host.h"
#include "tools/plc_host/messages.h"
#include "tools/plc_host/results/result_writer.h"
#include "tools/plc_host/why/why_capture.h"
#include "tools/plc_host/why/why_live.h"
#include "tools/plc_host/why/why_report.h"

namespace plc_host {
namespace {

constexpr size_t kMostErrors = 5;
constexpr char kOwnFile[] =
    "The driver looks in the host's working directory for PLC<address in hexadecimal>_<area>.csv: "
    "plc-host check FILE --address ADDRESS.";

// A tag file that cannot be used is an answer too.
int explain_tag_file(const HostOptions& options, const ClientError& error, CommandOutput& output, WhyReport& report) {
  for (const std::string& line : output.take_lines()) report.driver_lines.push_back(line);
  const char* advice = kOwnFile;
  if (!options.tag_file.empty()) advice = "Check the path that --tags or the setting names.";
  if (report.source) advice = "plc-host check FILE names each line that the driver cannot use.";
  report.fault(error.what(), advice);
  if (report.source) {
    for (const TagSource::Remark& remark : report.source->errors(kMostErrors)) report.fault(remark.text, remark.advice);
  }
  return exit_code_of(error);
}

}  // namespace

int run_why(const HostOptions& options, CommandOutput& output) {
  WhyReport report;
  report.asked = options.by_id ? "number " + std::to_string(options.register_id) : options.names.front();
  int code = kExitOk;
  try {
    code = options.capture.empty() ? follow_live(options, output, report) : follow_capture(options, output, report);
  } catch (const ClientError& error) {
    if (error.kind() != ClientError::Kind::kTagFile) throw;
    code = explain_tag_file(options, error, output, report);
  }
  if (options.json) {
    write_why_json(output.results(), report);
  } else {
    write_why_text(output.results(), report);
  }
  return code;
}

}  // namespace plc_host
