// Lines of the log.
#include "tools/plc_gateway/service/log.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "base/shown_text.h"
#include "tools/plc_gateway/service/utc_text.h"

namespace plc_gateway {
namespace {

constexpr Ms kQuietMs = 60000;
constexpr unsigned kMostInAMinute = 3;
constexpr size_t kMostKinds = 256;  // what comes from outside must not fill the memory
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

Log::Log() : writer_(write_to_stderr), is_journal_(is_stream_of_journal()) {}

void Log::put(LogLevel level, std::string line, uint64_t repeated) {
  if (repeated > 0) line += " repeated=" + std::to_string(repeated);
  writer_(is_journal_ ? "<" + std::to_string(static_cast<int>(level)) + ">" + line
                      : "time=" + utc_text(wall_now()) + " " + line);
}

void Log::write(LogLevel level, std::string_view event, const LogFields& fields, Ms now_ms) {
  std::string line = std::string("level=") + level_word(level) + " event=" + std::string(event);
  for (const auto& [key, value] : fields) line += " " + std::string(key) + "=" + log_value(value);
  std::string name = kind_of(line);
  if (kinds_.size() >= kMostKinds && kinds_.count(name) == 0) name = event;
  Kind& kind = kinds_.try_emplace(name, level, Kind{now_ms, 0, 0, {}}).first->second.second;
  if (now_ms - kind.since_ms >= kQuietMs) {
    kind.since_ms = now_ms;
    kind.written = 0;
  }
  if (kind.written < kMostInAMinute) {
    ++kind.written;
    put(level, std::move(line), std::exchange(kind.held_back, 0));
    return;
  }
  ++kind.held_back;
  kind.line = std::move(line);
}

void Log::tick(Ms now_ms) {
  for (auto it = kinds_.begin(); it != kinds_.end();) {
    auto& [level, kind] = it->second;
    const bool is_over = now_ms - kind.since_ms >= kQuietMs;
    if (is_over && kind.held_back == 0) {
      it = kinds_.erase(it);
      continue;
    }
    if (is_over) {
      put(level, std::move(kind.line), kind.held_back);
      kind = {now_ms, kMostInAMinute, 0, {}};  // the next one only when this minute is over
    }
    ++it;
  }
}

}  // namespace plc_gateway
