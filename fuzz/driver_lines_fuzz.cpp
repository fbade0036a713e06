// The lines that the driver prints, as plc-host reads them: what they mean, and what is said of a call that failed.
#include <string>
#include <vector>

#include "client/driver/driver_lines.h"
#include "client/driver/failure.h"
#include "fuzz_input.h"
#include "judge.h"
#include "spelling.h"

namespace {

using fuzz::demand;

constexpr const char* kWords[] = {"guard: connect refused",
                                  "guard: no route to the controller",
                                  "guard: connect failed, error ",
                                  "select time out",
                                  "select error",
                                  "getsockopt error",
                                  "guard: not a reply of this protocol",
                                  "guard: reply to another request",
                                  "guard: bytes behind the reply",
                                  "guard: more than 65536 bytes waited before the request",
                                  "guard: controller refused the directory, status ",
                                  "guard: controller refused the names, status ",
                                  "guard: controller refused the read, status ",
                                  "guard: controller refused the write, status ",
                                  "guard: ",
                                  " of ",
                                  " names resolved",
                                  "0 of 1 names resolved",
                                  " bytes of values, ",
                                  " were asked for",
                                  " programs in the directory",
                                  "guard: program of the variable is ambiguous",
                                  "guard: batch over several programs or scopes",
                                  "guard: batch with an 8-bit or 64-bit variable",
                                  "guard: reply cut off, ",
                                  " bytes in time",
                                  "--timeout--",
                                  "guard: connection closed by the controller",
                                  "guard: connection lost, error ",
                                  "--err--",
                                  "send error",
                                  "read data err!",
                                  "file failed",
                                  "rejected, line",
                                  "build tag table failed!",
                                  "add_tagtable failed!",
                                  "malloc ",
                                  "is not exist in this tag list",
                                  "Index out of range!",
                                  "init fail",
                                  " late replies dropped",
                                  "111",
                                  "99999999999",
                                  "-1",
                                  "0013",
                                  "PLC1_0.csv"};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t length) {
  fuzz::Input input(bytes, length);
  plc_client::core::CallResult call;
  call.code = input.below(6);
  const uint8_t choice = input.byte();
  call.connection_lost = (choice & 1U) != 0;
  plc_client::core::Target target;
  target.ip_address = 0xC0000201;
  target.recv_timeout_s = choice;
  const std::string text = fuzz::spelled(input.text(), kWords);
  for (size_t at = 0; at <= text.size() && call.lines.size() < 2;) {
    const size_t end = std::min(text.find('\n', at), text.size());
    call.lines.push_back(text.substr(at, end - at));
    at = end + 1;
  }
  const plc_client::core::Failure failure = plc_client::core::explain_failure(call, target);
  demand(!failure.reason.empty() && failure.code == call.code, "a failure has words and its code");
  demand(
      failure.quality != plc_client::core::Quality::kGood && failure.quality != plc_client::core::Quality::kUnguarded,
      "a failure has no value");
  demand(!plc_client::core::leaves_write_open(failure) || call.code == PLC_FAILED, "only a failed write is left open");
  for (const auto& left_out :
       {plc_client::core::impossible(text), plc_client::core::not_read(text), plc_client::core::not_written(text)}) {
    demand(left_out.reason.size() >= text.size() && !plc_client::core::leaves_write_open(left_out),
           "what was left out says why");
  }
  demand(*plc_client::core::quality_word(failure.quality) != '\0', "a quality has a word");
  return 0;
}
