// The table of the driver's lines. docs/troubleshooting.md is the same for those who have the lines alone.
#include "client/driver/driver_lines.h"

#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string_view>
#include <vector>

namespace plc_client::core {
namespace {

struct KnownLine {
  const char* part;  // of the line; each '*' stands for a number or a word
  Quality quality;
  const char* meaning;  // %1 and %2 are what the stars stood for, %e the system's words for error number %1
  const char* advice;
};

constexpr char kConnectAdvice[] =
    "Check address and port, cable, subnet and firewall, and the controller's own settings for the port.";
constexpr char kDescriptorAdvice[] =
    "The host has probably used up its descriptors below 1024: count its open files and sockets.";
constexpr char kNameAdvice[] =
    "No variable of this name in this scope, or not with these subscripts: compare spelling, case, scope and array "
    "bounds with the controller's own list of variables.";
constexpr char kSizeAdvice[] =
    "The type in the tag file does not fit the variable: compare it with the controller's declaration.";
constexpr char kStrangerAdvice[] =
    "Is another device at this address and port, or a gateway that mixes connections? Check both; plc-host why shows "
    "what came.";
constexpr char kAgainAdvice[] =
    "The next transfer connects again by itself. If it stays like this, look at the controller's power, its limit of "
    "connections, and the network between.";
constexpr char kPlanAdvice[] = "Ask for less in one call: plc-host does so by itself.";

// Those nearest to the cause first.
constexpr KnownLine kLines[] = {
    {"guard: connect refused", Quality::kNoConnection, "refused: nothing listens on that port",
     "Check the port, and whether the controller's host link is switched on."},
    {"guard: no route to the controller", Quality::kNoConnection, "there is no route to that address",
     "Check the address, the host's own subnet and gateway, cable and switch."},
    {"guard: connect failed, error *", Quality::kNoConnection, "the connection failed: %e", kConnectAdvice},
    {"select time out", Quality::kNoConnection, "nothing took the connection within 30 ms", kConnectAdvice},
    {"select error", Quality::kNoConnection, "the wait for the connection failed", kDescriptorAdvice},
    {"getsockopt error", Quality::kNoConnection, "the result of the connect could not be asked for", kDescriptorAdvice},
    {"guard: not a reply of this protocol", Quality::kForeign, "what answers there does not speak this protocol",
     kStrangerAdvice},
    {"guard: reply to another request", Quality::kForeign, "the reply belongs to another request", kStrangerAdvice},
    {"guard: bytes behind the reply", Quality::kForeign, "bytes that belong to nothing came behind the reply",
     kStrangerAdvice},
    {"guard: more than 65536 bytes waited before the request", Quality::kForeign,
     "more than 64 KiB that nobody asked for came before the request", kStrangerAdvice},
    {"guard: controller refused the directory, status *", Quality::kRefused,
     "the controller refused its directory of programs, status %1",
     "Check that this is the controller's host link port, and that no password or mode of it stands before it."},
    {"guard: controller refused the names, status *", Quality::kRefused, "the controller refused the name, status %1",
     kNameAdvice},
    {"guard: controller refused the read, status *", Quality::kRefused, "the controller refused the read, status %1",
     kSizeAdvice},
    {"guard: controller refused the write, status *", Quality::kRefused, "the controller refused the write, status %1",
     "Look whether the controller allows writing: its mode, its write protection, the variable's own attributes; and "
     "compare the type in the tag file with the controller's declaration."},
    {"guard: 0 of 1 names resolved", Quality::kIncomplete, "the reply does not hold the name that was asked for",
     "Compare offset, subscripts and declared length with the controller's declaration of the variable."},
    {"guard: * of * names resolved", Quality::kIncomplete, "the reply holds %1 of %2 names that were asked for",
     "Read fewer elements at once: one reply holds about 169 names."},
    {"guard: * bytes of values, * were asked for", Quality::kIncomplete,
     "the reply holds %1 bytes of values, %2 were asked for", kSizeAdvice},
    {"guard: * of * programs in the directory", Quality::kIncomplete,
     "the directory of programs holds %1 of the %2 that it counts",
     "Look at the network between; plc-host why shows what came."},
    {"guard: program of the variable is ambiguous", Quality::kImpossible,
     "the names of two programs are the beginning of the variable's scope, and none is the scope",
     "Write the program's name in column 12 of the line, exactly as the controller has it."},
    {"guard: batch over several programs or scopes", Quality::kImpossible, "a batch takes variables of one scope only",
     kPlanAdvice},
    {"guard: batch with an 8-bit or 64-bit variable", Quality::kImpossible, "a batch takes 1, 16 and 32 bits only",
     kPlanAdvice},
    {"guard: batch with a BOOL array in EM memory", Quality::kImpossible, "a batch takes no BOOL array in EM memory",
     kPlanAdvice},
    {"guard: batch of several elements with a BOOL count above 1", Quality::kImpossible,
     "a batch of several elements takes single BOOLs only", kPlanAdvice},
    {"guard: write of several bits inside words or in EM memory", Quality::kImpossible,
     "such bits are written one by one only", kPlanAdvice},
    {"guard: write of more than 8 bits of an array", Quality::kImpossible,
     "eight bits of an array are the most in one write", kPlanAdvice},
    {"guard: reply cut off, * bytes in time", Quality::kNoAnswer, "only %1 bytes of the answer came in time",
     "Raise the reply time-out (plc-host: --timeout), and look at the network between."},
    {"--timeout--", Quality::kNoAnswer, "no answer in time",
     "Raise the reply time-out (plc-host: --timeout), look at the controller's load and at the network between, and "
     "whether this is the controller's port."},
    {"guard: connection closed by the controller", Quality::kLost, "the controller closed the connection",
     kAgainAdvice},
    {"guard: connection lost, error *", Quality::kLost, "the connection was lost: %e", kAgainAdvice},
    {"--err--", Quality::kLost, "the wait for a reply failed",
     "Look at the host: a signal or a closed descriptor interrupts the wait."},
    {"send error", Quality::kLost,
     "a request could not be sent: the connection is gone, or was refused in the first place",
     "The next transfer connects again by itself. If it stays like this, see whether anything listens on the "
     "controller's port."},
    {"read data err!", Quality::kIncomplete, "the reply to the value request has fewer than 14 bytes",
     "plc-host why NAME shows what came: a refusal, as of a name that the controller does not have in this scope, or a "
     "piece of the reply."},
    {"file failed", Quality::kImpossible, "there is no tag file of this name in the working directory",
     "Name the file by the controller's address and the area, and start the host in its folder: plc-host check FILE "
     "--address ADDRESS."},
    {"rejected, line", Quality::kImpossible, "the runs of indexed ids in the tag file break a limit",
     "plc-host check FILE names the line."},
    {"build tag table failed!", Quality::kImpossible, "the tag file gives no record",
     "See whether the file is empty, or its only line has no trailing newline: plc-host check FILE."},
    {"add_tagtable failed!", Quality::kFailed, "there was no memory to keep the tag file's records",
     "Free memory on the host."},
    {"malloc ", Quality::kFailed, "there was no memory to load the tag file", "Free memory on the host."},
    {"is not exist in this tag list", Quality::kImpossible,
     "the number is past the tag file's, or is its largest indexed id",
     "plc-host tags FILE lists the numbers that can be asked for; end indexed ids with a line for nothing."},
    {"Index out of range!", Quality::kImpossible, "the number or the element is outside its group or its array",
     "Check number and offset against plc-host tags FILE."},
    {"guard: no connection without the directory of programs", Quality::kNoConnection,
     "the controller gave no directory of its programs, without which nothing is transferred", kConnectAdvice},
    {"init fail", Quality::kNoConnection, "the transfer could not connect",
     "See what else was printed about the connection."},
};

// Whether the text begins with the pattern; words receives what its stars stand for.
bool begins_with(std::string_view text, std::string_view pattern, std::vector<std::string>& words) {
  words.clear();
  size_t at = 0;
  for (const char sign : pattern) {
    if (sign == '*') {
      const size_t end = std::min(text.find_first_of(" ,", at), text.size());
      words.emplace_back(text.substr(at, end - at));
      at = end;
    } else if (at >= text.size() || text[at++] != sign) {
      return false;
    }
  }
  return true;
}

bool holds(std::string_view line, std::string_view pattern, std::vector<std::string>& words) {
  const std::string_view start = pattern.substr(0, pattern.find('*'));
  for (size_t at = line.find(start); at < line.size(); at = line.find(start, at + 1)) {
    if (begins_with(line.substr(at), pattern, words)) return true;
  }
  return false;
}

// The system's words for the number of an error.
const char* error_words(const std::string& number) {
  constexpr int kDecimal = 10;
  return std::strerror(static_cast<int>(std::strtol(number.c_str(), nullptr, kDecimal)));
}

std::string filled_in(const char* meaning, const std::vector<std::string>& words) {
  std::string text;
  for (const char* at = meaning; *at != '\0'; ++at) {
    if (*at != '%') {
      text += *at;
      continue;
    }
    ++at;
    text += *at == 'e' ? error_words(words.at(0)) : words.at(static_cast<size_t>(*at - '1'));
  }
  return text;
}

}  // namespace

std::optional<LineMeaning> meaning_of_line(const std::string& line) {
  std::vector<std::string> words;
  for (size_t rank = 0; rank < std::size(kLines); ++rank) {
    const KnownLine& known = kLines[rank];
    if (!holds(line, known.part, words)) continue;
    return LineMeaning{known.quality, filled_in(known.meaning, words), known.advice, rank};
  }
  return std::nullopt;
}

}  // namespace plc_client::core
