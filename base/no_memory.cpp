// Writes by system calls alone.
#include "base/no_memory.h"

#include <unistd.h>

#include <cstring>
#include <exception>
#include <new>

namespace plc_base {
namespace {

// Set before the constructors of objects with a life of their own have run: has none itself.
struct Ending {
  const char* line;
  int exit_code;
};

Ending memory_ending;
Ending unhandled_ending;

[[noreturn]] void end_as(const Ending& ending) {
  say_without_memory(ending.line);
  _exit(ending.exit_code);
}

}  // namespace

void end_without_memory(const char* line, int exit_code) {
  memory_ending = {line, exit_code};
  std::set_new_handler([] { end_as(memory_ending); });
}

void end_when_unhandled(const char* line, int exit_code) {
  unhandled_ending = {line, exit_code};
  std::set_terminate([] { end_as(unhandled_ending); });
}

void say_without_memory(const char* line) {
  // There is nobody to tell when this fails too.
  if (write(STDERR_FILENO, line, std::strlen(line)) < 0) return;
}

}  // namespace plc_base
