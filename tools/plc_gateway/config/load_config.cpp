// Reads a configuration, and everything that it names.
#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <filesystem>
#include <optional>
#include <set>
#include <string_view>

#include "base/files.h"
#include "base/network_address.h"
#include "base/text.h"
#include "tools/plc_gateway/config/check_files.h"
#include "tools/plc_gateway/config/config.h"
#include "tools/plc_gateway/config/draft.h"
#include "tools/plc_gateway/config/name_list.h"
#include "tools/plc_gateway/model/driver_build.h"

namespace plc_gateway {
namespace {

constexpr size_t kMostConfigBytes = size_t{1} << 20U;  // tens of thousands of names

struct FoundAddress {
  std::string address;  // "192.168.0.10"; empty when there is none
  std::string problem;
};

std::string text_of(uint32_t address) {
  const in_addr number{htonl(address)};
  std::array<char, INET_ADDRSTRLEN> text{};
  inet_ntop(AF_INET, &number, text.data(), text.size());
  return text.data();
}

FoundAddress find_address(const std::string& host) {
  const plc_base::FoundHost found = plc_base::find_host(host);
  if (!found.problem.empty()) return {{}, found.problem};
  return {text_of(found.address), {}};
}

// The address of PLC<address>_<area>.csv; nothing for another name.
std::optional<uint32_t> address_in(const std::string& name) {
  constexpr std::string_view kStart = "PLC";
  constexpr std::string_view kEnd = ".csv";
  const size_t line = name.find('_');
  if (name.compare(0, kStart.size(), kStart) != 0 || line == std::string::npos) return std::nullopt;
  if (name.size() < kEnd.size() || name.compare(name.size() - kEnd.size(), kEnd.size(), kEnd) != 0) return std::nullopt;
  uint32_t address = 0;
  const std::from_chars_result end = std::from_chars(name.data() + kStart.size(), name.data() + line, address, 16);
  const bool is_whole = end.ec == std::errc() && end.ptr == name.data() + line;
  return is_whole ? std::optional<uint32_t>(address) : std::nullopt;
}

// That of all tag files in the folders; empty when they are several controllers', or none.
std::string address_of_files(const std::vector<std::string>& paths) {
  std::set<uint32_t> addresses;
  for (const std::string& path : paths) {
    std::error_code problem;
    for (std::filesystem::directory_iterator file(path, problem), end; !problem && file != end;
         file.increment(problem)) {
      if (const std::optional<uint32_t> address = address_in(file->path().filename().string())) {
        addresses.insert(*address);
      }
    }
  }
  return addresses.size() == 1 ? text_of(*addresses.begin()) : std::string();
}

// The library has said what is wrong with the driver or with a tag file.
void tell_problem(const Draft& draft, const std::string& problem, Findings& findings) {
  for (const PlacedText& path : draft.tags) {
    if (problem.find(path.text) == std::string::npos) continue;
    findings.error(path.place, problem + "; correct the path, or put the tag files there");
    return;
  }
  findings.error(draft.driver, problem + "; driver is \"guarded\", \"contract\" or the path of a library");
}

// Names are looked up whatever becomes of the address: a name server that is out of reach says nothing of the file.
// Only the tag files of a folder are found by it, unless all of them are one controller's.
void look_around(Draft& draft, Findings& findings) {
  constexpr const char* kAnyAddress = "127.0.0.1";
  if (!can_look_names_up(draft)) return;
  plc_client::Options options = draft.config.controller;
  const FoundAddress found = find_address(options.address);
  const plc_base::NumberProblem wrong = plc_base::number_problem(options.address);
  if (!wrong.text.empty()) {
    findings.error(draft.address, plc_base::quoted(options.address) + " is not an address: " + wrong.text +
                                      (wrong.has_remedy ? "" : "; give one like 192.168.0.10"));
  } else if (found.address.empty()) {
    findings.note(draft.address, plc_base::quoted(options.address) +
                                     " is not an address, and this machine knows no host of that name now (" +
                                     found.problem + "): it is tried again while the gateway runs");
  }
  draft.config.tag_address = found.address.empty() ? address_of_files(options.tags) : found.address;
  if (draft.config.tag_address.empty()) draft.config.tag_address = kAnyAddress;
  options.address = draft.config.tag_address;
  try {
    plc_client::Controller controller(options);
    check_driver(draft, is_guarded_build(controller.driver_build()), findings);
    look_names_up(draft, controller, findings);
  } catch (const plc_client::Error& error) {
    tell_problem(draft, error.what(), findings);
  }
}

}  // namespace

bool ConfigResult::ok() const {
  return std::none_of(findings.begin(), findings.end(), [](const Finding& finding) { return finding.is_error; });
}

ConfigResult load_config(const std::string& file) {
  Findings findings(file);
  ConfigResult result;
  result.config.file = file;
  const plc_base::FileText text = plc_base::read_file(file, kMostConfigBytes);
  if (!text.problem.empty()) {
    findings.error({}, text.problem);
    result.findings = findings.take();
    return result;
  }
  Draft draft = parse_config(text.text, file, findings);
  set_paths(draft);
  check_files(draft, findings);
  use_profile(draft, findings);
  look_around(draft, findings);
  result.config = std::move(draft.config);
  result.places = draft.places;
  result.journal_place = draft.journal_folder;
  result.findings = findings.take();
  return result;
}

}  // namespace plc_gateway
