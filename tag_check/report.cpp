// The checker's findings as text, as JSON lines and as SARIF.
#include "report.h"

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>
#include <string_view>

#include "base/json_text.h"
#include "base/shown_text.h"
#include "base/text.h"
#include "rule_list.h"

namespace tag_check {
namespace {

using Json = nlohmann::ordered_json;

std::string place(const FileReport& report, const Finding& finding) {
  return plc_base::shown_first(report.file) + ":" + std::to_string(finding.line) + ":" + std::to_string(finding.column);
}

std::string understanding_text(const Understanding& understanding) {
  if (!understanding.loads) return "the driver does not load this file";
  std::string text = "the driver reads " + plc_base::plural(understanding.plain_records, "plain record");
  if (understanding.groups > 0) {
    text += " and " + plc_base::plural(understanding.groups, "run") + " of indexed ids up to " +
            std::to_string(understanding.max_indexed_id);
  }
  return text;
}

// Which findings of a file are shown, and how many each of them stands for.
class ShownFindings {
 public:
  explicit ShownFindings(const std::vector<Finding>& findings) {
    for (const Finding& finding : findings) ++counts_[finding.rule].all;
  }

  // To be asked for each finding in their order: the number of this one among those of its rule, from 1.
  size_t number_of(const Finding& finding) { return ++counts_[finding.rule].told; }
  // Whether this is the first one to be shown with what its rule says to do.
  bool is_first_without_remedy(const Finding& finding) {
    return !finding.has_remedy && ++counts_[finding.rule].without_remedy == 1;
  }
  // How many are not shown.
  size_t hidden(const Finding& finding) const {
    const size_t all = counts_.at(finding.rule).all;
    return all > kShownOfARule ? all - kShownOfARule : 0;
  }

 private:
  struct Count {
    size_t all = 0;
    size_t told = 0;
    size_t without_remedy = 0;
  };
  std::map<std::string_view, Count> counts_;
};

const char* sarif_level(Severity severity) { return severity == Severity::kInfo ? "note" : severity_name(severity); }

Json sarif_rules() {
  Json rules = Json::array();
  for (const Rule& rule : rule_list()) {
    Json entry;
    entry["id"] = rule.code;
    entry["shortDescription"]["text"] = rule.title;
    entry["fullDescription"]["text"] = rule.explanation;
    entry["help"]["text"] = rule.suggestion;
    entry["defaultConfiguration"]["level"] = sarif_level(rule.severity);
    rules.push_back(entry);
  }
  return rules;
}

// A file's name as the path of an address. It has no host in it: slashes at its beginning become one.
std::string uri_of(std::string_view path) {
  constexpr std::string_view kPlain = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~/";
  while (path.substr(0, 2) == "//") path.remove_prefix(1);
  std::string uri;
  for (const char byte : path) {
    const auto value = static_cast<unsigned char>(byte);
    uri += kPlain.find(byte) != std::string_view::npos ? std::string(1, byte)
                                                       : "%" + plc_base::hexadecimal(value, 2).substr(2);
  }
  return uri;
}

// Whoever shows the document takes "[word](address)" for a link, and shows all else as it stands.
std::string sarif_text(std::string_view message) {
  std::string shown = plc_base::shown_line(message);
  if (shown.find("](") == std::string::npos) return shown;
  std::string text;
  for (const char sign : shown) text += sign == '[' || sign == ']' ? std::string{'\\', sign} : std::string(1, sign);
  return text;
}

Json sarif_result(const FileReport& report, const Finding& finding) {
  Json location;
  location["artifactLocation"]["uri"] = uri_of(report.file);
  location["region"]["startLine"] = finding.line;
  location["region"]["startColumn"] = finding.column;
  if (finding.last_line > finding.line) location["region"]["endLine"] = finding.last_line;
  Json result;
  result["ruleId"] = finding.rule;
  result["level"] = sarif_level(rule_of(finding.rule).severity);
  result["message"]["text"] = sarif_text(finding.message);
  result["locations"] = Json::array({Json{{"physicalLocation", location}}});
  return result;
}

void count_hidden(size_t hidden, Json* result) {
  (*result)["occurrenceCount"] = hidden + 1;
  const auto text = (*result)["message"]["text"].get<std::string>();
  (*result)["message"]["text"] = text + "; and " + plc_base::grouped_number(hidden) + " more";
}

}  // namespace

std::string text_report(const FileReport& report) {
  std::string text;
  ShownFindings shown(report.findings);
  for (const Finding& finding : report.findings) {
    const size_t number = shown.number_of(finding);
    if (number > kShownOfARule) continue;
    const Rule& rule = rule_of(finding.rule);
    text += place(report, finding) + ": " + severity_name(rule.severity) + ": " +
            plc_base::shown_line(finding.message) + " [" + rule.code + "]\n";
    if (shown.is_first_without_remedy(finding)) text += "    " + std::string(rule.suggestion) + "\n";
    if (number == kShownOfARule && shown.hidden(finding) > 0) {
      text += plc_base::shown_first(report.file) + ": " + severity_name(rule.severity) + ": and " +
              plc_base::grouped_number(shown.hidden(finding)) + " more [" + rule.code + "]\n";
    }
  }
  return text + plc_base::shown_first(report.file) + ": " + understanding_text(report.understanding) + "\n";
}

std::string json_report(const FileReport& report) {
  std::string text;
  for (const Finding& finding : report.findings) {
    const Rule& rule = rule_of(finding.rule);
    Json object;
    object["file"] = report.file;
    object["line"] = finding.line;
    object["column"] = finding.column;
    if (finding.last_line > finding.line) object["last_line"] = finding.last_line;
    object["severity"] = severity_name(rule.severity);
    object["rule"] = rule.code;
    object["message"] = finding.message;
    object["explanation"] = rule.explanation;
    object["suggestion"] = rule.suggestion;
    object["fixable"] = finding.is_fixable();
    text += plc_base::json_line(object);
  }
  Json driver;
  driver["loads"] = report.understanding.loads;
  driver["plain_records"] = report.understanding.plain_records;
  driver["groups"] = report.understanding.groups;
  driver["max_indexed_id"] = report.understanding.max_indexed_id;
  driver["printed"] = report.understanding.lines;
  Json object;
  object["file"] = report.file;
  object["driver"] = driver;
  return text + plc_base::json_line(object);
}

std::string sarif_report(const std::vector<FileReport>& reports) {
  Json driver;
  driver["name"] = "plc-host check";
  driver["rules"] = sarif_rules();
  Json run;
  run["tool"]["driver"] = driver;
  run["results"] = Json::array();
  for (const FileReport& report : reports) {
    ShownFindings shown(report.findings);
    for (const Finding& finding : report.findings) {
      const size_t number = shown.number_of(finding);
      if (number > kShownOfARule) continue;
      run["results"].push_back(sarif_result(report, finding));
      const size_t hidden = number == kShownOfARule ? shown.hidden(finding) : 0;
      if (hidden > 0) count_hidden(hidden, &run["results"].back());
    }
  }
  Json document;
  document["$schema"] = "https://json.schemastore.org/sarif-2.1.0.json";
  document["version"] = "2.1.0";
  document["runs"] = Json::array({run});
  return plc_base::json_text(document, 2) + "\n";
}

std::string rules_text(const std::vector<std::string>& codes) {
  std::string text;
  for (const Rule& rule : rule_list()) {
    if (!codes.empty() && std::find(codes.begin(), codes.end(), rule.code) == codes.end()) continue;
    text += std::string(rule.code) + " (" + severity_name(rule.severity) + ") " + rule.title + "\n    " +
            rule.explanation + "\n    " + rule.suggestion + "\n";
  }
  return text;
}

}  // namespace tag_check
