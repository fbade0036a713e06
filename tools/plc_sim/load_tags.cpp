// Loads tag files; of a file that is no tag file it prints the first lines only.
#include "tools/plc_sim/load_tags.h"

#include <algorithm>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "base/files.h"
#include "base/near_names.h"
#include "base/text.h"
#include "tools/plc_sim/messages.h"

namespace plc_sim {
namespace {

// Far more than a controller's variables take; a wrong path may name anything.
constexpr size_t kMostTagFileBytes = size_t{256} << 20U;
// Of one file, of errors and of warnings each: whoever has more makes the same mistake in each line.
constexpr size_t kMostPrinted = 10;

// "plc-sim: FILE:LINE: error: REASON", and at the end how many there were besides.
class ProblemPrinter {
 public:
  void add(const std::string& file, unsigned line, bool is_warning, const std::string& text) {
    Counts& counts = files_[file];
    if ((is_warning ? counts.warnings : counts.errors)++ >= kMostPrinted) return;
    print_error("plc-sim: " + shown_path(file) + ":" + std::to_string(line) +
                (is_warning ? ": warning: " : ": error: ") + text);
  }

  void finish() const {
    for (const auto& [file, counts] : files_) {
      print_rest(file, counts.errors, "error");
      print_rest(file, counts.warnings, "warning");
    }
  }

 private:
  struct Counts {
    size_t errors = 0;
    size_t warnings = 0;
  };

  static void print_rest(const std::string& file, size_t count, const char* what) {
    if (count > kMostPrinted) {
      print_error("plc-sim: " + shown_path(file) + ": and " +
                  plc_base::plural(count - kMostPrinted, std::string("more ") + what));
    }
  }

  std::map<std::string, Counts> files_;
};

bool is_capture(std::string_view bytes) {
  for (const std::string_view magic :
       {"\xD4\xC3\xB2\xA1", "\xA1\xB2\xC3\xD4", "\x4D\x3C\xB2\xA1", "\xA1\xB2\x3C\x4D", "\x0A\x0D\x0D\x0A"}) {
    if (bytes.substr(0, magic.size()) == magic) return true;
  }
  return false;
}

// With the mark that says so, or with the zeros that a byte order of letters has.
bool is_utf16(std::string_view bytes) {
  const bool has_mark = bytes.substr(0, 2) == "\xFF\xFE" || bytes.substr(0, 2) == "\xFE\xFF";
  const auto is_letter = [&bytes](size_t at) { return bytes[at] > ' ' && bytes[at] < '\x7F'; };
  if (has_mark || bytes.size() < 4) return has_mark;
  const bool is_low_first = is_letter(0) && bytes[1] == '\0' && is_letter(2) && bytes[3] == '\0';
  return is_low_first || (bytes[0] == '\0' && is_letter(1) && bytes[2] == '\0' && is_letter(3));
}

// Why no line of it is worth a look; empty for what may be a tag file.
std::string why_no_tag_file(const std::string& path, const plc_base::FileText& file) {
  const std::string name = shown_path(path);
  const bool is_folder = file.problem.find("it is a folder") != std::string::npos;
  if (is_folder) return file.problem + ". Try: name the tag files in it, " + path + "/*.csv";
  if (!file.problem.empty()) return file.problem;
  if (file.text.empty()) return name + " is empty. Try: a tag file, which has a line for each variable";
  if (is_utf16(file.text)) {
    return name + " is UTF-16, a tag file is UTF-8. Try: plc-host check " + path +
           " --fix NEW.csv, which writes it as UTF-8";
  }
  if (plc_base::is_workbook(file.text)) return name + " is a spreadsheet's own file. Try: save it there as CSV";
  if (is_capture(file.text)) return name + " is a capture. Try: --replay " + path;
  return {};
}

// Numbers given for programs that nobody has.
void warn_of_programs(const Options& options, const std::vector<TagDeclaration>& tags) {
  std::vector<std::string> names;
  for (const TagDeclaration& tag : tags) {
    if (!tag.is_global) names.push_back(tag.program);
  }
  for (const auto& [name, number] : options.programs) {
    if (std::find(names.begin(), names.end(), name) != names.end()) continue;
    const std::string near = plc_base::did_you_mean(name, names);
    print_error("plc-sim: warning: --program " + name + ": no tag is of this program" +
                (near.empty() ? "" : "; " + near));
  }
}

}  // namespace

bool load_tags(const Options& options, VariableStore& store) {
  bool is_good = true;
  ProblemPrinter printer;
  std::vector<TagDeclaration> tags;
  for (const std::string& path : options.tag_files) {
    const plc_base::FileText bytes = plc_base::read_file(path, kMostTagFileBytes);
    const std::string reason = why_no_tag_file(path, bytes);
    if (!reason.empty()) {
      print_error("plc-sim: " + reason);
      return false;
    }
    const TagFile file = read_tag_text(path, bytes.text);
    for (const TagProblem& problem : file.problems) {
      const bool is_warning = problem.is_warning || options.skip_bad_lines;
      printer.add(problem.file, problem.line, is_warning, problem.text);
      is_good = is_good && is_warning;
    }
    tags.insert(tags.end(), file.tags.begin(), file.tags.end());
  }
  for (const StoreProblem& problem : store.declare(tags, options.programs, options.directory_order)) {
    printer.add(problem.file, problem.line, options.skip_bad_lines, problem.text);
    is_good = is_good && options.skip_bad_lines;
  }
  printer.finish();
  warn_of_programs(options, tags);
  // A line that is left out needs others that stay.
  const char* otherwise = store.variables().empty() ? "" : ", or --skip-bad-lines";
  if (!is_good) print_error(std::string("plc-sim: nothing was started. Try: plc-host check FILE") + otherwise);
  if (!is_good || !options.skip_bad_lines || !store.variables().empty()) return is_good;
  print_error("plc-sim: nothing was started: no line can be declared. Try: plc-host check FILE");
  return false;
}

}  // namespace plc_sim
