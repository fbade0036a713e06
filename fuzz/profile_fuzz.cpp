// Profiles as people correct them, and worse: each finding has its place and can be shown, and what was read is written
// and read again as it was.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <type_traits>
#include <variant>

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

void judge_errors(const ProfileResult& result, const std::string& text) {
  fuzz::judge_findings(result.findings, kFile, text);
  for (const plc_toml::Finding& finding : result.findings) demand(finding.is_error, "a finding is an error");
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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t length) {
  fuzz::Input input(bytes, length);
  const std::string text = fuzz::spelled(input.text(), kWords);
  const ProfileResult result = plc_profile::parse_profile(text, kFile);
  judge_errors(result, text);
  for (const KeyRow& row : plc_profile::key_rows()) std::visit(RangeJudge{result.profile, row}, row.slot);
  if (!result.ok()) return 0;
  const std::string written = plc_profile::profile_text(result.profile);
  const ProfileResult again = plc_profile::parse_profile(written, kFile);
  demand(again.ok(), "what is written can be read");
  demand(plc_profile::profile_text(again.profile) == written, "what is read again is what was written");
  demand(again.profile.note == result.profile.note, "a text comes back");
  demand(again.profile.refused.size() == result.profile.refused.size(), "no refused variable is lost");
  return 0;
}
