// Writes lines to standard error, each saying who speaks.
#include "tools/plc_host/messages.h"

#include <cstdio>

#include "base/shown_text.h"
#include "tools/plc_host/colors.h"

namespace plc_host {
namespace {

void show(const std::string& speaker, const std::string& text) {
  std::fprintf(stderr, "%s%s\n", speaker.c_str(), plc_base::shown_line(text).c_str());
}

}  // namespace

void show_plain_line(const std::string& line) { show("", line); }

void show_message(const std::string& text) { show("plc-host: ", text); }

void show_error(const std::string& text) { show(tinted_message("plc-host:", Tint::kBad) + " ", text); }

void show_driver_line(const std::string& text) { show("driver: ", text); }

void show_frame_line(const std::string& text) { show("wire: ", text); }

void show_simulator_line(const std::string& text) { show("plc-sim: ", text); }

}  // namespace plc_host
