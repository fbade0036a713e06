// Lines of the log.
#include "tools/plc_gateway/service/log.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <utility>

#include "base/shown_text.h"
#include "tools/plc_gateway/model/utc_text.h"

namespace plc_gateway {
namespace {

constexpr Ms kQuietMs = 60000;
constexpr unsigned kMostInAMinute = 3;
constexpr size_t kMostKinds = 256;     // what comes from outside must not fill the memory
constexpr char kMixed[] = " others=";  // lines of several kinds, so that none of them speaks for all
constexpr size_t kMostTextBytes = 1000;
constexpr size_t kMostKindBytes = 400;

const char* level_word(LogLevel level) {
  switch (level) {
    case LogLevel::kError:
      return "error";
    case LogLevel::kWarning:
      return "warning";
    case LogLevel::kInfo:
      break;
  }
  return "info";
}

bool is_plain(const std::string& value) {
  constexpr const char* kUnquoted = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789.,:;/_+-*[]()@%~#";
  return !value.empty() && value.find_first_not_of(kUnquoted) == std::string::npos;
}

std::string log_value(const std::string& raw) {
  std::string value = plc_base::shown_line(raw.substr(0, kMostTextBytes));
  if (is_plain(value)) return value;
  std::string text = "\"";
  for (const char c : value) {
    if (c == '"' || c == '\\') text += '\\';
    text += c;
  }
  return text + "\"";
}

// Lines that differ in their numbers alone are of one kind.
std::string kind_of(std::string line) {
  line.erase(std::remove_if(line.begin(), line.end(), [](char c) { return c >= '0' && c <= '9'; }), line.end());
  line.resize(std::min(line.size(), kMostKindBytes));
  return line;
}

// What a line says the state of: a later line about the same one ends what it said.
std::string subject_of(std::string_view event, const LogFields& fields) {
  if (event == "variable_bad" || event == "variable_good") return "variable " + fields.front().second;
  for (const std::string_view state : {"controller_up", "controller_lost", "controller_away"}) {
    if (event == state) return "controller";
  }
  for (const std::string_view state :
       {"broker_connected", "waiting_for_host", "births_out", "broker_away", "broker_lost"}) {
    if (event == state) return "broker";
  }
  return {};
}

Ms wall_now() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::system_clock::now().time_since_epoch())
      .count();
}

// systemd says in the environment which file the stream is, and leaves that there for other programs too.
bool is_stream_of_journal() {
  const char* named = std::getenv("JOURNAL_STREAM");
  if (named == nullptr) return false;
  struct stat here {};
  if (fstat(STDERR_FILENO, &here) != 0) return false;
  return std::to_string(here.st_dev) + ":" + std::to_string(here.st_ino) == named;
}

void write_to_stderr(const std::string& line) {
  const std::string whole = line + "\n";
  std::fwrite(whole.data(), 1, whole.size(), stderr);
}

}  // namespace

Log::Log() : Log(write_to_stderr, is_stream_of_journal(), wall_now) {}

Log::Log(Writer writer, bool is_journal, std::function<Ms()> wall_clock)
    : writer_(std::move(writer)), is_journal_(is_journal), wall_clock_(std::move(wall_clock)) {}

void Log::put(LogLevel level, const std::string& line) {
  writer_(is_journal_ ? "<" + std::to_string(static_cast<int>(level)) + ">" + line
                      : "time=" + utc_text(wall_clock_()) + " " + line);
}

void Log::put_held_back(Kind& kind) {
  put(kind.level, kind.line + kind.counted + std::to_string(kind.held_back) + " last=" + utc_text(kind.wall_ms));
  kind.held_back = 0;
  kind.line.clear();
}

std::vector<Log::Kind*> Log::held_back_about(const std::string& subject) {
  std::vector<Kind*> found;
  for (auto& [name, kind] : kinds_) {
    if (kind.held_back > 0 && kind.subject == subject) found.push_back(&kind);
  }
  std::sort(found.begin(), found.end(), [](const Kind* a, const Kind* b) { return a->number < b->number; });
  return found;
}

void Log::write(LogLevel level, std::string_view event, const LogFields& fields, Ms now_ms) {
  std::string line = std::string("level=") + level_word(level) + " event=" + std::string(event);
  std::string head = line;
  for (const auto& [key, value] : fields) line += " " + std::string(key) + "=" + log_value(value);
  std::string name = kind_of(line);
  // Those beyond the bound share a place with others of their level alone: what was done is not lost among refusals.
  const bool is_mixed = kinds_.size() >= kMostKinds && kinds_.count(name) == 0;
  if (is_mixed) name = head + kMixed;
  Kind& kind = kinds_[name];
  kind.counted = is_mixed ? kMixed : " repeated=";
  if (kind.written == 0 || now_ms - kind.since_ms >= kQuietMs) {
    kind.since_ms = now_ms;
    kind.written = 0;
  }
  kind.level = level;
  kind.subject = subject_of(event, fields);
  if (kind.written < kMostInAMinute) {
    ++kind.written;
    if (const uint64_t earlier = std::exchange(kind.held_back, 0); earlier > 0) {
      line += kind.counted + std::to_string(earlier);
    }
    if (!kind.subject.empty()) {
      for (Kind* held : held_back_about(kind.subject)) put_held_back(*held);
    }
    put(level, line);
    return;
  }
  ++kind.held_back;
  kind.line = std::move(is_mixed ? head : line);
  kind.number = ++number_;
  kind.wall_ms = wall_clock_();
}

void Log::tick(Ms now_ms) {
  const auto is_over = [now_ms](const Kind& kind) { return now_ms - kind.since_ms >= kQuietMs; };
  for (auto it = kinds_.begin(); it != kinds_.end();) {
    it = is_over(it->second) && it->second.held_back == 0 ? kinds_.erase(it) : std::next(it);
  }
  for (auto& [name, due] : kinds_) {
    if (!is_over(due) || due.held_back == 0) continue;
    const std::vector<Kind*> all = due.subject.empty() ? std::vector<Kind*>{&due} : held_back_about(due.subject);
    for (Kind* kind : all) {
      put_held_back(*kind);
      kind->since_ms = now_ms;  // the next one only when this minute is over
      kind->written = kMostInAMinute;
    }
  }
}

}  // namespace plc_gateway
