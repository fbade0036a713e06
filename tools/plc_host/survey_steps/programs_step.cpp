// The controller's programs against the scopes of the local variables.
#include <algorithm>
#include <map>
#include <set>

#include "client/driver/program_names.h"
#include "tools/plc_host/survey_steps/survey_steps.h"
#include "wire/big_endian.h"
#include "wire/names.h"

namespace plc_host::survey {
namespace {

using wire_trace::Program;
using ProgramState = ProgramFinding::State;

constexpr size_t kCountAt = 14;  // of programs, in a directory

bool begins_with(const std::string& text, const std::string& beginning) {
  return text.compare(0, beginning.size(), beginning) == 0;
}

template <typename Is>
size_t count_of(const std::vector<Program>& programs, const Is& is) {
  return static_cast<size_t>(std::count_if(programs.begin(), programs.end(), is));
}

// What the tag files and the directory show together.
ProgramNames names_of(const std::set<std::string>& scopes, const std::vector<Program>& programs) {
  ProgramNames names;
  names.declared.assign(scopes.begin(), scopes.end());
  size_t longest = 0;
  for (const Program& program : programs) longest = std::max(longest, directory_units(program.name));
  names.longest_units = longest;
  return names;
}

// Reads of one register take the first program whose name the scope begins with, batches the one of the same name.
ProgramFinding finding_for(const std::string& scope, const std::vector<Program>& programs, const ProgramNames& names) {
  const auto is_same = [&scope](const Program& program) { return program.name == scope; };
  const auto is_beginning = [&scope](const Program& program) { return begins_with(scope, program.name); };
  const auto same = std::find_if(programs.begin(), programs.end(), is_same);
  const auto beginning = std::find_if(programs.begin(), programs.end(), is_beginning);
  ProgramFinding finding;
  finding.scope = scope;
  if (same != programs.end()) {
    finding.number = same->number;
    finding.state = beginning == same ? ProgramState::kFound : ProgramState::kPrefix;
    if (beginning != same) finding.other = beginning->name;
    return finding;
  }
  finding.state = ProgramState::kMissing;
  if (beginning == programs.end() || beginning->name.empty()) return finding;
  finding.other = beginning->name;
  const auto is_namesake = [&beginning](const Program& program) { return program.name == beginning->name; };
  finding.beginnings = count_of(programs, is_beginning);
  finding.namesakes = count_of(programs, is_namesake);
  const size_t bytes = beginning->name.size();
  // Of two beginnings nobody knows which is meant, and the guarded build takes neither.
  if (is_ambiguous(finding)) return finding;
  if (!is_likely_cut(names, scope, bytes) || !rivals(names, scope, bytes).empty()) return finding;
  finding.state = ProgramState::kCut;
  finding.number = beginning->number;
  return finding;
}

using ScopeFindings = std::map<std::string, ProgramFinding>;  // by their scopes

ScopeFindings find_scopes(const std::vector<Program>& programs, bool is_partial, Declarations& declared) {
  ScopeFindings findings;
  std::set<std::string> scopes;
  for (const Declared& variable : declared.variables) {
    if (variable.tag->entry.is_global != 1) scopes.insert(variable.tag->entry.scope_name);
  }
  const ProgramNames names = names_of(scopes, programs);
  for (Declared& variable : declared.variables) {
    const TagEntry& entry = variable.tag->entry;
    if (entry.is_global == 1) continue;
    const auto [at, is_new] = findings.insert({entry.scope_name, {}});
    if (is_new) at->second = finding_for(entry.scope_name, programs, names);
    ProgramState& state = at->second.state;
    if (is_partial && state == ProgramState::kMissing) state = ProgramState::kNotKnown;
    variable.is_asked = state != ProgramState::kMissing && state != ProgramState::kNotKnown;
    variable.is_program_known = state != ProgramState::kNotKnown;
    variable.program = at->second.number;
  }
  return findings;
}

void add_undeclared(const std::vector<Program>& programs, const ScopeFindings& findings, Programs& record) {
  std::set<std::string> known;
  for (const auto& [scope, finding] : findings) {
    known.insert(finding.state == ProgramState::kCut ? finding.other : scope);
  }
  for (const Program& program : programs) {
    if (known.count(program.name) > 0) continue;
    record.findings.push_back({program.name, program.number, ProgramState::kUndeclared, ""});
  }
}

}  // namespace

void survey_programs(Conversation& conversation, Declarations& declared) {
  Programs& record = conversation.record().programs;
  run_step(record.step, [&] {
    record.reply_bytes = conversation.directory().size();
    const std::vector<Program> programs = wire_trace::programs_of(conversation.directory());
    for (const Program& program : programs) record.directory.push_back(program.name);
    record.announced = plc_sim::ByteView(conversation.directory()).u8(kCountAt);
    const ScopeFindings findings = find_scopes(programs, is_directory_partial(record), declared);
    for (const auto& [scope, finding] : findings) record.findings.push_back(finding);
    add_undeclared(programs, findings, record);
  });
}

}  // namespace plc_host::survey
