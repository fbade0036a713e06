// Lines about what happens, as key=value for people and programs. What happens again and again becomes a line per
// minute, with its count.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tools/plc_gateway/model/variable.h"

namespace plc_gateway {

enum class LogLevel : uint8_t { kError = 3, kWarning = 4, kInfo = 6 };  // as the system's log has them

using LogFields = std::vector<std::pair<std::string_view, std::string>>;

class Log {
 public:
  // Of lines, without their ends.
  using Writer = std::function<void(const std::string& line)>;

  // To standard error. Under systemd's journal a line begins with its level, and has no time of its own.
  Log();
  Log(Writer writer, bool is_journal, std::function<Ms()> wall_clock);

  // `now_ms` is steady. Lines of one event that differ in numbers alone are of one kind: of a flood of them the first
  // few are written, and then one in a minute, with repeated=N and when the last of them was. What is held back of a
  // controller, a broker or a variable is written before the next line about the same one: no line says of it what held
  // before another line.
  void write(LogLevel level, std::string_view event, const LogFields& fields, Ms now_ms);
  // Writes what was held back and is due; to be called each second.
  void tick(Ms now_ms);

 private:
  struct Kind {
    LogLevel level = LogLevel::kInfo;
    Ms since_ms = 0;       // when the minute began
    unsigned written = 0;  // in it
    uint64_t held_back = 0;
    std::string line;     // the last one that was held back
    std::string counted;  // stands before how many were
    std::string subject;  // what it says the state of; may be empty
    uint64_t number = 0;  // in the order of all lines
    Ms wall_ms = 0;       // when it happened
  };
  using Kinds = std::map<std::string, Kind>;

  void put(LogLevel level, const std::string& line);
  void put_held_back(Kind& kind);
  // Those about the subject that are held back, the oldest first.
  std::vector<Kind*> held_back_about(const std::string& subject);

  Writer writer_;
  bool is_journal_ = false;
  std::function<Ms()> wall_clock_;
  uint64_t number_ = 0;
  Kinds kinds_;
};

}  // namespace plc_gateway
