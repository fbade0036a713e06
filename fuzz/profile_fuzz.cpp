// Profiles as people correct them, and worse: each finding has its place and can be shown, and what was read is written
// and read again as it was. Profiles as surveys learn them, any value in each place: so are these.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <type_traits>
#include <variant>

#include "base/utf8.h"
#include "fuzz_input.h"
#include "judge.h"
#include "profile/profile_file.h"
#include "profile/profile_keys.h"
#include "spelling.h"
#include "toml_judge.h"

namespace {

using fuzz::demand;
using plc_profile::KeyRow;
using plc_profile::PacePart;
using plc_profile::Profile;
using plc_profile::ProfileResult;

constexpr char kFile[] = "profile.toml";
constexpr char kHostileFile[] = "a\nplc-host: b\x1B[2J\xE2\x80\xAE.toml";

constexpr const char* kWords[] = {
    "[survey]\n",
    "[guarded]\n",
    "[settings]\n",
    "[connections]\n",
    "[replies]\n",
    "[times]\n",
    "[limits]\n",
    "[refusal]\n",
    "[directory]\n",
    "[contract]\nproblem=",
    "[contract]\nnames=",
    "[[refused]]\nname=\"A\"\n",
    "[[refused]]\n",
    "[refused]\n",
    "made=",
    "note=",
    "usable=",
    "timeout_s=",
    "delay_ms=",
    "batch_names=",
    "poll_ms=",
    "most=",
    "one_more=",
    "half_closed=",
    "segment_bytes=",
    "length=",
    "complement=",
    "sequence=",
    "class=",
    "command=",
    "status=",
    "bytes_behind_values=",
    "piece_bytes=",
    "piece_gap_ms=",
    "connect_ms=",
    "directory_ms=",
    "resolve_ms=",
    "resolve_each_ms=",
    "read_ms=",
    "write_each_ms=",
    "names=",
    "values=",
    "beyond=",
    "shape=",
    "name_units=",
    "name=",
    "program=",
    "\"right\"\n",
    "\"zero\"\n",
    "\"other\"\n",
    "\"refused\"\n",
    "\"closed\"\n",
    "\"silent\"\n",
    "\"short\"\n",
    "\"full\"\n",
    "\"answered\"\n",
    "\"not answered\"\n",
    "\"without both\"\n",
    "\"no\"\n",
    "\"\"\"",
    "\"",
    "\n",
    "[",
    "]",
    "{",
    "}",
    ",",
    "#",
    "=",
    "\\",
    "\\u202E",
    "0\n",
    "1\n",
    "40\n",
    "536\n",
    "65535\n",
    "65536\n",
    "-1\n",
    "0.5\n",
    "1e-7\n",
    "nan\n",
    "inf\n",
    "-0.0\n",
    "9223372036854775807\n",
    "0x8000\n",
    "true\n",
    "1979-05-27T07:32:00Z\n",
    "\xC3\xA4",
    "\xE2\x80\xAE",
    "\xFF",
};

void judge_line(const plc_toml::Finding& finding, const std::string& file) {
  const std::string line = plc_profile::finding_line(finding);
  demand(fuzz::is_shown(line) && line.find('\n') == std::string::npos, "a finding is told on one line");
  demand(line.compare(0, file.size(), file) == 0, "it begins with the file");
  const size_t text = line.size() - finding.text.size();
  demand(line.compare(text, finding.text.size(), finding.text) == 0, "it ends with what is wrong");
}

void judge_errors(const ProfileResult& result, const std::string& text) {
  fuzz::judge_findings(result.findings, kFile, text);
  for (plc_toml::Finding finding : result.findings) {
    demand(finding.is_error, "a finding is an error");
    judge_line(finding, kFile);
    finding.file = kHostileFile;
    judge_line(finding, plc_base::shown_line(kHostileFile));
    finding.file.clear();
    judge_line(finding, "");
  }
}

struct RangeJudge {
  const Profile& profile;
  const KeyRow& row;

  template <typename Value>
  void judge(const Value& value) const {
    if constexpr (std::is_enum_v<Value> || std::is_same_v<Value, bool>) {
      const size_t words = plc_profile::words_of(Value{}).size();
      demand(static_cast<size_t>(value) < words, "a word stands for a value");
    } else {
      demand(value >= row.low && value <= row.high, "a number is in its range");
    }
  }
  template <typename Value>
  void judge(const std::optional<Value>& value) const {
    if (value) judge(*value);
  }
  void operator()(std::string Profile::*) const {}
  void operator()(PacePart slot) const { judge(profile.*slot.pace.*slot.part); }
  template <typename Member>
  void operator()(Member Profile::*slot) const {
    judge(profile.*slot);
  }
};

// Gives one place of a profile a value that a survey may have found there.
struct Learnt {
  Profile& profile;
  const KeyRow& row;
  fuzz::Input& input;

  std::string text() const {
    std::string bytes;
    for (size_t count = input.byte() % 32; count > 0; --count) bytes += static_cast<char>(input.byte());
    return plc_base::is_utf8(bytes) ? bytes : "";
  }
  double decimal() const {
    constexpr double kPieces = 65535;
    return row.low + (static_cast<double>(row.high) - row.low) * (input.word() / kPieces);
  }
  void operator()(std::string Profile::*slot) const { profile.*slot = text(); }
  void operator()(std::optional<double> Profile::*slot) const { profile.*slot = decimal(); }
  void operator()(PacePart slot) const { profile.*slot.pace.*slot.part = decimal(); }
  void operator()(Profile::Guarded Profile::*slot) const {
    profile.*slot = static_cast<Profile::Guarded>(input.byte() % plc_profile::words_of(Profile::Guarded{}).size());
  }
  template <typename Value>
  void operator()(std::optional<Value> Profile::*slot) const {
    if constexpr (std::is_enum_v<Value> || std::is_same_v<Value, bool>) {
      profile.*slot = static_cast<Value>(input.byte() % plc_profile::words_of(Value{}).size());
    } else {
      profile.*slot = static_cast<Value>(row.low + input.double_word() % (row.high - row.low + 1));
    }
  }
};

void judge_learnt(fuzz::Input& input) {
  Profile profile;
  const std::vector<KeyRow>& rows = plc_profile::key_rows();
  for (size_t count = input.byte() % (rows.size() + 1); count > 0; --count) {
    const KeyRow& row = rows[input.byte() % rows.size()];
    std::visit(Learnt{profile, row, input}, row.slot);
  }
  for (size_t count = input.byte() % 4; count > 0; --count) {
    const Learnt learnt{profile, rows.front(), input};
    const Profile::Refused refused{"S" + learnt.text(), learnt.text()};
    profile.refused.push_back(refused);
  }
  const std::string written = plc_profile::profile_text(profile);
  demand(fuzz::is_shown(written), "a profile can be shown");
  const ProfileResult read = plc_profile::parse_profile(written, kFile);
  demand(read.ok(), "what was learnt can be read");
  demand(plc_profile::profile_text(read.profile) == written, "it is read as it was learnt");
  demand(read.profile.note == profile.note && read.profile.controller == profile.controller, "texts come back");
  demand(read.profile.refused.size() == profile.refused.size(), "variables come back");
}

void judge_text(const std::string& text) {
  const ProfileResult result = plc_profile::parse_profile(text, kFile);
  judge_errors(result, text);
  for (const KeyRow& row : plc_profile::key_rows()) std::visit(RangeJudge{result.profile, row}, row.slot);
  if (!result.ok()) return;
  const std::string written = plc_profile::profile_text(result.profile);
  const ProfileResult again = plc_profile::parse_profile(written, kFile);
  demand(again.ok(), "what is written can be read");
  demand(plc_profile::profile_text(again.profile) == written, "what is read again is what was written");
  demand(again.profile.note == result.profile.note, "a text comes back");
  demand(again.profile.refused.size() == result.profile.refused.size(), "no refused variable is lost");
}

}  // namespace

// The byte 1 at the beginning: what a survey has learnt. Everything else is a text.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t length) {
  constexpr uint8_t kLearnt = 1;
  if (length > 0 && bytes[0] == kLearnt) {
    fuzz::Input input(bytes + 1, length - 1);
    judge_learnt(input);
  } else {
    judge_text(fuzz::spelled(fuzz::Input(bytes, length).text(), kWords));
  }
  return 0;
}
