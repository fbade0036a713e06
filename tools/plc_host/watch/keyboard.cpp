// Sets the terminal to single keys and back.
#include "tools/plc_host/watch/keyboard.h"

#include <unistd.h>

#include <array>
#include <cerrno>

namespace plc_host {
namespace {

// A program in the background that touches its terminal is stopped.
bool has_terminal() { return isatty(STDIN_FILENO) == 1 && tcgetpgrp(STDIN_FILENO) == getpgrp(); }

}  // namespace

Keyboard::Keyboard() {
  if (!has_terminal() || tcgetattr(STDIN_FILENO, &before_) != 0) return;
  struct termios single = before_;
  single.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
  single.c_cc[VMIN] = 0;
  single.c_cc[VTIME] = 0;
  if (tcsetattr(STDIN_FILENO, TCSANOW, &single) == 0) descriptor_ = STDIN_FILENO;
}

Keyboard::~Keyboard() {
  if (descriptor_ >= 0 && has_terminal()) tcsetattr(descriptor_, TCSADRAIN, &before_);
}

int Keyboard::descriptor() const { return descriptor_ >= 0 && has_terminal() ? descriptor_ : -1; }

std::string Keyboard::read_keys() {
  if (descriptor() < 0) return {};
  std::array<char, 256> bytes{};
  const ssize_t count = read(descriptor_, bytes.data(), bytes.size());
  // A terminal that is gone would be ready for ever.
  if (count == 0 || (count < 0 && errno != EINTR && errno != EAGAIN)) descriptor_ = -1;
  return count > 0 ? std::string(bytes.data(), static_cast<size_t>(count)) : std::string();
}

}  // namespace plc_host
