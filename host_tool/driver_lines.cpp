// The driver's lines of failure; docs/troubleshooting.md is the same for those who have the lines alone.
#include "driver_lines.h"

namespace plc_host {
namespace {

constexpr LineMeaning kMeanings[] = {
    {"select time out", "nothing took the connection within 30 ms",
     "Check address and port, cable, subnet and firewall, and the controller's own settings for the port."},
    {"select error", "the wait for the connection failed",
     "The host has probably used up its descriptors below 1024: count its open files and sockets."},
    {"getsockopt error", "the result of the connect could not be asked for",
     "The host has probably used up its descriptors below 1024: count its open files and sockets."},
    {"init fail", "the transfer could not connect", "See what else was printed about the connection."},
    {"send error", "a request could not be sent: the connection is gone, or was refused in the first place",
     "The next transfer connects again by itself. If it stays like this, see whether anything listens on the "
     "controller's port."},
    {"--timeout--", "the controller did not answer a request in time",
     "Raise recv_timeout_s (--timeout), and look at the controller's load and at the network between."},
    {"--err--", "the wait for a reply failed",
     "Look at the host: a signal or a closed descriptor interrupts the wait."},
    {"read data err!", "the reply to the value request has fewer than 14 bytes",
     "The controller knows no such variable, or not in this scope: check name and scope."},
    {"file failed", "there is no tag file of this name in the working directory",
     "Name the file by the controller's address and the area, and start the host in its folder: plc-host check FILE "
     "--address ADDRESS."},
    {"rejected, line", "the runs of indexed ids in the tag file break a limit", "plc-host check FILE names the line."},
    {"build tag table failed!", "the tag file gives no record",
     "See whether the file is empty, or its only line has no line end: plc-host check FILE."},
    {"add_tagtable failed!", "there was no memory to keep the tag file's records", "Free memory on the host."},
    {"malloc ", "there was no memory to load the tag file", "Free memory on the host."},
    {"is not exist in this tag list", "the number is past the tag file's, or is its largest indexed id",
     "plc-host tags FILE lists the numbers that can be asked for; end indexed ids with a line for nothing."},
    {"Index out of range!", "the number or the element is outside its group or its array",
     "Check number and offset against plc-host tags FILE."},
};

}  // namespace

const LineMeaning* meaning_of_line(const std::string& line) {
  for (const LineMeaning& meaning : kMeanings) {
    if (line.find(meaning.part) != std::string::npos) return &meaning;
  }
  return nullptr;
}

}  // namespace plc_host
