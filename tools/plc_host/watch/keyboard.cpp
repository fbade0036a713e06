// Sets the terminal to single keys and back, also around a stop.
#include "tools/plc_host/watch/keyboard.h"

#include <signal.h>
#include <unistd.h>

#include <array>
#include <cerrno>

namespace plc_host {
namespace {

// What the handler of a signal gives back: it can be told nothing else.
struct Held {
  int keys = -1;
  int screen = -1;
  struct termios before {};
  struct sigaction stop_before {};
  struct sigaction go_on_before {};
  struct sigaction quit_before {};
};
Held held;
volatile sig_atomic_t is_given_back = 0;

// A program in the background that touches its terminal is stopped.
bool has_terminal() { return isatty(STDIN_FILENO) == 1 && tcgetpgrp(STDIN_FILENO) == getpgrp(); }

// Two signals in a row take the keys twice: what is given back is what the shell had.
bool is_single(const struct termios& mode) {
  return (mode.c_lflag & static_cast<tcflag_t>(ICANON | ECHO)) == 0 && mode.c_cc[VMIN] == 0 && mode.c_cc[VTIME] == 0;
}

// Those that would interrupt a call of the driver.
sigset_t own_signals() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGTSTP);
  sigaddset(&set, SIGCONT);
  return set;
}

// Stops the program as it would without this handler, and comes back when it goes on.
void stop_here() {
  struct sigaction ours {};
  struct sigaction usual {};
  usual.sa_handler = SIG_DFL;
  sigaction(SIGTSTP, &usual, &ours);
  raise(SIGTSTP);
  const sigset_t set = own_signals();
  sigset_t before;
  pthread_sigmask(SIG_UNBLOCK, &set, &before);
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  sigaction(SIGTSTP, &ours, nullptr);
}

// Calls alone that a handler may make.
void give_terminal() {
  constexpr char kShowCursor[] = "\033[?25h";
  if (tcgetpgrp(held.screen) == getpgrp()) {
    const ssize_t written = write(held.screen, kShowCursor, sizeof kShowCursor - 1);
    static_cast<void>(written);
  }
  if (held.keys >= 0 && tcgetpgrp(held.keys) == getpgrp()) tcsetattr(held.keys, TCSANOW, &held.before);
}

void give_back(int) {
  const int saved = errno;
  give_terminal();
  is_given_back = 1;
  stop_here();
  errno = saved;
}

// The signal comes again when the handler is through, and then ends the program as usual.
void quit(int number) {
  give_terminal();
  raise(number);
}

// Whoever had the terminal meanwhile has left it as he liked.
void note_going_on(int) { is_given_back = 1; }

// Ctrl-\ ends a program at once; where it is ignored, it stays so.
void catch_quit() {
  sigaction(SIGQUIT, nullptr, &held.quit_before);
  if (held.quit_before.sa_handler == SIG_IGN) return;
  struct sigaction action {};
  sigemptyset(&action.sa_mask);
  action.sa_handler = quit;
  action.sa_flags = static_cast<int>(SA_RESETHAND);
  sigaction(SIGQUIT, &action, nullptr);
}

// Where nobody could let the program go on, Ctrl-Z is ignored, and stays so.
void catch_suspension() {
  sigaction(SIGTSTP, nullptr, &held.stop_before);
  sigaction(SIGCONT, nullptr, &held.go_on_before);
  if (held.stop_before.sa_handler == SIG_IGN) return;
  const sigset_t set = own_signals();
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
  struct sigaction action {};
  sigemptyset(&action.sa_mask);
  action.sa_handler = give_back;
  sigaction(SIGTSTP, &action, nullptr);
  action.sa_handler = note_going_on;
  sigaction(SIGCONT, &action, nullptr);
}

}  // namespace

Keyboard::Keyboard(int screen) : screen_(screen) {
  is_given_back = 0;
  held.screen = screen_;
  take_keys();
  catch_suspension();
  catch_quit();
}

Keyboard::~Keyboard() {
  sigaction(SIGTSTP, &held.stop_before, nullptr);
  sigaction(SIGCONT, &held.go_on_before, nullptr);
  sigaction(SIGQUIT, &held.quit_before, nullptr);
  if (descriptor_ >= 0 && has_terminal() && is_given_back == 0) tcsetattr(descriptor_, TCSADRAIN, &held.before);
  held.keys = -1;
  const sigset_t set = own_signals();
  pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
}

void Keyboard::take_keys() {
  struct termios now {};
  if (!has_terminal() || tcgetattr(STDIN_FILENO, &now) != 0) return;
  if (held.keys < 0 || !is_single(now)) held.before = now;
  struct termios single = held.before;
  single.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
  single.c_cc[VMIN] = 0;
  single.c_cc[VTIME] = 0;
  if (tcsetattr(STDIN_FILENO, TCSANOW, &single) == 0) held.keys = descriptor_ = STDIN_FILENO;
}

int Keyboard::descriptor() const { return descriptor_ >= 0 && is_given_back == 0 && has_terminal() ? descriptor_ : -1; }

bool Keyboard::is_in_background() const {
  const pid_t group = tcgetpgrp(screen_);
  return group > 0 && group != getpgrp();
}

bool Keyboard::take_again() {
  if (is_given_back == 0 || is_in_background()) return false;
  is_given_back = 0;
  // The mode may be another one by now.
  if (descriptor_ >= 0) take_keys();
  return true;
}

std::string Keyboard::read_keys() {
  if (descriptor() < 0) return {};
  std::array<char, 256> bytes{};
  const ssize_t count = read(descriptor_, bytes.data(), bytes.size());
  // A terminal that is gone would be ready for ever.
  if (count == 0 || (count < 0 && errno != EINTR && errno != EAGAIN)) descriptor_ = -1;
  return count > 0 ? std::string(bytes.data(), static_cast<size_t>(count)) : std::string();
}

void allow_suspension() {
  const sigset_t set = own_signals();
  sigset_t before;
  pthread_sigmask(SIG_UNBLOCK, &set, &before);
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

}  // namespace plc_host
