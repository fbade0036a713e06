// Writes lines to standard error, each saying who speaks.
#include "tools/plc_host/messages.h"

#include <cstdio>

#include "base/shown_text.h"

namespace plc_host {
namespace {

void show(const char* speaker, const std::string& text) {
  std::fprintf(stderr, "%s%s\n", speaker, plc_base::shown_line(text).c_str());
}

}  // namespace

void show_plain_line(const std::string& line) { show("", line); }

void show_message(const std::string& text) { show("plc-host: ", text); }

void show_driver_line(const std::string& text) { show("driver: ", text); }

void show_frame_line(const std::string& text) { show("wire: ", text); }

void show_simulator_line(const std::string& text) { show("plc-sim: ", text); }

}  // namespace plc_host
