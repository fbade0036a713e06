// Checks across lines: runs of indexed ids, duplicate names, scopes that are beginnings of others.
#include <algorithm>
#include <cstring>
#include <map>
#include <set>
#include <unordered_map>

#include "checker.h"
#include "plc_driver/tags/tag_file.h"

namespace tag_check {
namespace {

// Consecutive indexed ids, as the driver groups them.
struct Run {
  const SourceLine* first;
  const SourceLine* last;
  uint32_t length;

  uint32_t first_id() const { return first->class_id; }
  uint32_t last_id() const { return last->class_id; }
};

std::vector<Run> collect_runs(const SourceFile& file) {
  std::vector<Run> runs;
  for (const SourceLine& line : file.lines) {
    if (!line.indexed) continue;
    if (!runs.empty() && runs.back().last_id() + 1 == line.class_id) {
      runs.back().last = &line;
      ++runs.back().length;
    } else {
      runs.push_back({&line, &line, 1});
    }
  }
  return runs;
}

constexpr uint32_t kLargestFormedId = 0xFFFFFF;  // a host's reg_type, the upper part of an id, is one byte

std::string id_text(uint32_t id) { return std::to_string(id); }

constexpr uint32_t kIdsPerBlock = 1U << plc::kIdBlockShift;

uint32_t block_of(uint32_t id) { return id >> plc::kIdBlockShift; }

// Where a run stands among the runs of its file.
struct RunPlace {
  bool is_first;
  bool is_last;
};

// The driver does not count the id that starts a later run, and takes the one behind it into the run whatever it is.
void check_length(const Run& run, const RunPlace& place, Findings* findings) {
  constexpr uint32_t kFirstRunLimit = 100;
  constexpr uint32_t kLaterRunLimit = 101;
  const Column& id = run.first->column(8);
  if (run.length == 1 && !place.is_first && !place.is_last) {
    add_finding("T103", *run.first, id,
                "a run of one id that is neither the file's first nor its last: the driver rejects the file", findings);
  }
  const uint32_t limit = place.is_first ? kFirstRunLimit : kLaterRunLimit;
  if (run.length > limit) {
    add_finding("T104", *run.first, id,
                std::string(place.is_first ? "the file's first run" : "a later run") + " has " +
                    std::to_string(run.length) + " ids and may have " + std::to_string(limit) +
                    ": the driver rejects the file",
                findings);
  }
}

void check_run(const Run& run, const RunPlace& place, std::set<uint32_t>* blocks, Findings* findings) {
  const Column& id = run.first->column(8);
  const bool is_rejected = block_of(run.first_id()) - plc::kFirstIdBlock >= plc::kIdBlocks;
  // The last one alone is there to end the ids, and asked for by nobody.
  const bool is_end = place.is_last && run.length == 1;
  if (is_rejected || (run.first_id() > kLargestFormedId && !is_end)) {
    add_finding("T105", *run.first, id,
                is_rejected ? "ids end at 16777215: the driver rejects the file"
                            : "ids end at 16777215: hosts cannot ask for this one",
                findings);
    if (is_rejected) return;
  }
  if (block_of(run.first_id()) != block_of(run.last_id())) {
    add_finding("T101", *run.first, id,
                "the run " + id_text(run.first_id()) + " to " + id_text(run.last_id()) +
                    " crosses the end of a block, " + id_text((block_of(run.first_id()) + 1) * kIdsPerBlock - 1),
                findings);
  }
  if (!blocks->insert(block_of(run.first_id())).second) {
    add_finding("T102", *run.first, id, "a second run starts in the same block of 8192 ids", findings);
  }
  check_length(run, place, findings);
}

// The line that has the largest indexed id may be one for nothing, which its name says by a leading underscore.
void check_largest(const std::vector<Run>& runs, Findings* findings) {
  if (runs.empty()) return;
  const auto largest =
      std::max_element(runs.begin(), runs.end(), [](const Run& a, const Run& b) { return a.last_id() < b.last_id(); });
  const SourceLine& line = *largest->last;
  if (line.column(1).text.substr(0, 1) == "_") return;
  add_finding("T100", line, line.column(8), "the largest indexed id of a file cannot be addressed", findings);
}

void check_ids(const SourceFile& file, Findings* findings) {
  std::map<uint32_t, uint32_t> lines;
  uint32_t largest = 0;
  for (const SourceLine& line : file.lines) {
    if (!line.indexed) continue;
    const auto added = lines.emplace(line.class_id, line.number);
    if (!added.second) {
      add_finding("T107", line, line.column(8), "line " + std::to_string(added.first->second) + " has the same id",
                  findings);
    } else if (line.class_id < largest) {
      add_finding("T108", line, line.column(8), "indexed ids do not rise", findings);
    }
    largest = std::max(largest, line.class_id);
  }
}

// What tells variables apart on the controller: their program, if they are local, and their name. Without blanks, which
// no name of the controller's has.
std::string identity(const SourceLine& line) {
  const std::string_view scope = line.entry.is_global == 1 ? "\n" : without_blanks(line.entry.scope_name);
  return std::string(scope) + "\n" + meant_name(line);
}

// Lines that declare the same variable, as far as blanks do not count.
struct Namesakes {
  const SourceLine* first;
  const SourceLine* other;  // the first one with a name that is spelt otherwise; null where none is
};

using Variables = std::unordered_map<std::string, Namesakes>;

std::string blanks_between(const SourceLine& line, const SourceLine& other) {
  const bool is_name = line.column(1).text != other.column(1).text;
  const bool is_program = line.entry.is_global != 1 && std::strcmp(line.entry.scope_name, other.entry.scope_name) != 0;
  if (!is_name && !is_program) return "";
  const std::string what = is_name && is_program ? "name and its program" : is_name ? "name" : "program";
  return " once the blanks around its " + what + " are removed";
}

// A name that would be another one's without its blanks is left: nobody but a person knows whether both are one.
void keep_apart(const SourceFile& file, const Variables& variables, Findings* findings) {
  for (Finding& finding : *findings) {
    if (std::strcmp(finding.rule, "T021") != 0) continue;
    const auto line = std::lower_bound(file.lines.begin(), file.lines.end(), finding.line,
                                       [](const SourceLine& a, uint32_t number) { return a.number < number; });
    const auto found = variables.find(identity(*line));
    if (found == variables.end() || found->second.other == nullptr) continue;
    const bool is_first = line->column(1).text == found->second.first->column(1).text;
    const SourceLine& other = is_first ? *found->second.other : *found->second.first;
    finding.edits.clear();
    finding.message += "; only they tell it from that of line " + std::to_string(other.number) +
                       ": remove them by hand if both are one variable";
    finding.has_remedy = true;
  }
}

void check_duplicates(const SourceFile& file, Findings* findings) {
  Variables variables;
  variables.reserve(file.lines.size());
  for (const SourceLine& line : file.lines) {
    if (line.kind != LineKind::kRecord || line.entry.name[0] == '\0') continue;
    const auto added = variables.emplace(identity(line), Namesakes{&line, nullptr});
    if (added.second) continue;
    Namesakes& same = added.first->second;
    if (same.other == nullptr && line.column(1).text != same.first->column(1).text) same.other = &line;
    if (line.entry.name[0] == '_') continue;
    const std::string blanks = blanks_between(line, *same.first);
    const std::string message = "line " + std::to_string(same.first->number) + " declares the same variable" + blanks;
    Finding& finding = add_finding("T110", line, line.column(1), message, findings);
    finding.other_line = same.first->number;
    finding.has_remedy = !blanks.empty();  // of the finding on the blanks
  }
  keep_apart(file, variables, findings);
}

// First lines of the programs that the file names.
std::map<std::string, const SourceLine*> collect_scopes(const SourceFile& file) {
  std::map<std::string, const SourceLine*> scopes;
  for (const SourceLine& line : file.lines) {
    if (line.kind != LineKind::kRecord) continue;
    if (line.entry.is_global != 1 && line.entry.scope_name[0] != '\0') scopes.emplace(line.entry.scope_name, &line);
  }
  return scopes;
}

void check_scopes(const SourceFile& file, Findings* findings) {
  const auto scopes = collect_scopes(file);
  for (const auto& [name, line] : scopes) {
    for (size_t length = 1; length < name.size(); ++length) {
      const auto shorter = scopes.find(name.substr(0, length));
      if (shorter == scopes.end()) continue;
      add_finding("T111", *line, line->column(12),
                  "the program '" + shorter->first + "' of line " + std::to_string(shorter->second->number) +
                      " is the beginning of '" + name + "'",
                  findings)
          .other_line = shorter->second->number;
    }
  }
}

}  // namespace

void check_runs(const SourceFile& file, Findings* findings) {
  constexpr size_t kGroupLimit = 100;
  const std::vector<Run> runs = collect_runs(file);
  std::set<uint32_t> blocks;
  for (const Run& run : runs) check_run(run, {&run == &runs.front(), &run == &runs.back()}, &blocks, findings);
  if (runs.size() > kGroupLimit) {
    add_finding("T106", *runs[kGroupLimit].first, runs[kGroupLimit].first->column(8),
                "more than 100 runs of ids: the driver rejects the file", findings);
  }
  check_largest(runs, findings);
  check_ids(file, findings);
}

void check_across(const SourceFile& file, Findings* findings) {
  check_duplicates(file, findings);
  check_scopes(file, findings);
}

}  // namespace tag_check
