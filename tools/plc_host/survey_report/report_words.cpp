// Words and numbers of the report.
#include "tools/plc_host/survey_report/report_words.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

#include "base/text.h"

namespace plc_host::survey {
namespace {

std::string decimal(double value, int decimals) {
  std::array<char, 64> text{};
  std::snprintf(text.data(), text.size(), "%.*f", decimals, value);
  return text.data();
}

}  // namespace

const char* word_of(Step::State state) {
  switch (state) {
    case Step::State::kDone:
      return "done";
    case Step::State::kPartly:
      return "partly";
    default:
      return "not done";
  }
}

const char* word_of(ProgramFinding::State state) {
  switch (state) {
    case ProgramFinding::State::kFound:
      return "found";
    case ProgramFinding::State::kMissing:
      return "missing";
    case ProgramFinding::State::kNotKnown:
      return "not known";
    case ProgramFinding::State::kCut:
      return "cut";
    case ProgramFinding::State::kPrefix:
      return "prefix";
    default:
      return "not declared";
  }
}

bool has_number(const ProgramFinding& finding) {
  return finding.state != ProgramFinding::State::kMissing && finding.state != ProgramFinding::State::kNotKnown;
}

std::string missing_words(const ProgramFinding& finding) {
  if (finding.state == ProgramFinding::State::kNotKnown) {
    return "not known: the controller's directory may have more programs than came with it";
  }
  if (finding.other.empty()) return "missing in the controller's directory";
  if (finding.namesakes > 1) {
    return "not in the controller's directory, which has " + std::to_string(finding.namesakes) + " programs called " +
           plc_base::quoted(finding.other) + ", the beginning of its name: nobody can tell them apart";
  }
  return "not in the controller's directory, which has " + plc_base::quoted(finding.other) +
         ", the beginning of its name: another program, or its name cut";
}

const char* word_of(VariableFinding::State state) {
  switch (state) {
    case VariableFinding::State::kGood:
      return "good";
    case VariableFinding::State::kRefused:
      return "refused";
    case VariableFinding::State::kNotNamed:
      return "not named";
    case VariableFinding::State::kDifferent:
      return "different";
    case VariableFinding::State::kNotByDriver:
      return "not read by the driver";
    case VariableFinding::State::kNotCompared:
      return "not compared";
    case VariableFinding::State::kShort:
      return "too short";
    case VariableFinding::State::kLong:
      return "too long";
    default:
      return "not tried";
  }
}

const char* word_of(Verdict::Usable usable) {
  switch (usable) {
    case Verdict::Usable::kYes:
      return "usable";
    case Verdict::Usable::kWithoutStatus:
      return "without status";
    case Verdict::Usable::kWithoutValueEnd:
      return "without value end";
    case Verdict::Usable::kWithoutBoth:
      return "without both";
    case Verdict::Usable::kNotUsable:
      return "not usable";
    default:
      return "not known";
  }
}

std::string status_text(uint16_t status) {
  std::array<char, 8> text{};
  std::snprintf(text.data(), text.size(), "%04X", static_cast<unsigned>(status));
  return text.data();
}

std::string shown_ms(double ms) {
  constexpr double kWhole = 100;
  const int decimals = ms < 1 ? 3 : ms < kWhole ? 2 : 0;
  return decimal(ms, decimals) + " ms";
}

std::string utc_text(const std::string& iso) {
  constexpr size_t kDay = 10;
  constexpr size_t kWhole = 20;  // to the second
  if (iso.size() != kWhole || iso[kDay] != 'T' || iso.back() != 'Z') return iso;
  return iso.substr(0, kDay) + " " + iso.substr(kDay + 1, kWhole - kDay - 2) + " UTC";
}

std::string seconds_text(double seconds) {
  constexpr uint64_t kMinute = 60;
  constexpr uint64_t kHour = 60 * kMinute;
  if (seconds < kMinute) return decimal(seconds, seconds < 10 ? 1 : 0) + " s";
  const auto whole = static_cast<uint64_t>(std::llround(seconds));
  if (whole < kHour) return std::to_string(whole / kMinute) + " min " + std::to_string(whole % kMinute) + " s";
  return std::to_string(whole / kHour) + " h " + std::to_string(whole % kHour / kMinute) + " min";
}

std::string hours_text(double hours) {
  constexpr double kMinutes = 60;
  const double seconds = hours * kMinutes * 60;
  if (hours > 0 && hours * kMinutes < 1) return decimal(seconds, seconds < 1 ? 3 : 1) + " s";
  const bool is_whole = hours >= 1 && std::floor(hours) == hours;
  return is_whole ? decimal(hours, 0) + " h" : decimal(hours * kMinutes, 0) + " min";
}

std::string controller_text(const Link& link) { return link.host + ":" + std::to_string(link.port); }

std::string pieces_text(const std::vector<size_t>& pieces) {
  constexpr size_t kMost = 6;
  std::string text;
  for (size_t i = 0; i < pieces.size() && i < kMost; ++i) {
    if (i > 0) text += " + ";
    text += std::to_string(pieces[i]);
  }
  if (pieces.size() > kMost) text += " and " + plc_base::plural(pieces.size() - kMost, "piece") + " more";
  return text;
}

std::string not_measured(const Step& step) {
  return step.why.empty() ? "Not measured." : "Not measured: " + step.why + ".";
}

}  // namespace plc_host::survey
