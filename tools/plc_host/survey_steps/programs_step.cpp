// The controller's programs against the scopes of the local variables.
#include <algorithm>
#include <map>
#include <set>

#include "client/driver/program_names.h"
#include "tools/plc_host/survey_steps/survey_steps.h"
#include "wire/names.h"

namespace plc_host::survey {
namespace {

using wire_trace::Program;
using ProgramState = ProgramFinding::State;

bool begins_with(const std::string& text, const std::string& beginning) {
  return text.compare(0, beginning.size(), beginning) == 0;
}

// What the tag files and the directory show together of a name in the directory that is the beginning of a scope.
class CutNames {
 public:
  CutNames(const std::set<std::string>& scopes, const std::vector<Program>& programs)
      : scopes_(scopes), programs_(programs) {
    names_.declared.assign(scopes.begin(), scopes.end());
    size_t longest = 0;
    for (const Program& program : programs) longest = std::max(longest, directory_units(program.name));
    names_.longest_units = longest;
  }

  // The directory has cut the scope to this name, where facts agree: it is not another program's name, and either
  // another scope is cut at the same length or the name is long.
  bool is_cut(const std::string& scope, const std::string& name) const {
    if (is_another_name(names_, scope, name.size())) return false;
    return is_likely_cut(names_, directory_units(name)) || has_other(scope, name);
  }

 private:
  bool has_other(const std::string& scope, const std::string& name) const {
    for (const Program& program : programs_) {
      const bool is_as_long = directory_units(program.name) == directory_units(name);
      if (program.name == name || !is_as_long || scopes_.count(program.name) > 0) continue;
      const auto is_beginning = [&](const std::string& other) {
        return other != scope && begins_with(other, program.name);
      };
      if (std::any_of(scopes_.begin(), scopes_.end(), is_beginning)) return true;
    }
    return false;
  }

  const std::set<std::string>& scopes_;
  const std::vector<Program>& programs_;
  ProgramNames names_;
};

// Reads of one register take the first program whose name the scope begins with, batches the one of the same name.
ProgramFinding finding_for(const std::string& scope, const std::vector<Program>& programs, const CutNames& cut_names) {
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
  if (!cut_names.is_cut(scope, beginning->name)) return finding;
  finding.state = ProgramState::kCut;
  finding.number = beginning->number;
  return finding;
}

using ScopeFindings = std::map<std::string, ProgramFinding>;  // by their scopes

ScopeFindings find_scopes(const std::vector<Program>& programs, Declarations& declared) {
  ScopeFindings findings;
  std::set<std::string> scopes;
  for (const Declared& variable : declared.variables) {
    if (variable.tag->entry.is_global != 1) scopes.insert(variable.tag->entry.scope_name);
  }
  const CutNames cut_names(scopes, programs);
  for (Declared& variable : declared.variables) {
    const TagEntry& entry = variable.tag->entry;
    if (entry.is_global == 1) continue;
    const auto [at, is_new] = findings.insert({entry.scope_name, {}});
    if (is_new) at->second = finding_for(entry.scope_name, programs, cut_names);
    variable.is_asked = at->second.state != ProgramState::kMissing;
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
    const ScopeFindings findings = find_scopes(programs, declared);
    for (const auto& [scope, finding] : findings) record.findings.push_back(finding);
    add_undeclared(programs, findings, record);
  });
}

}  // namespace plc_host::survey
