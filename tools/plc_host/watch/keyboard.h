// The terminal that watch draws in: keys as they are pressed, and Ctrl-Z, which gives it back for a while.
#pragma once

#include <termios.h>

#include <string>

namespace plc_host {

class Keyboard {
 public:
  // Takes the keys of standard input where that is a terminal and this program is not in its background. They are not
  // shown and need no Return until the object ends; Ctrl-C stays what it is. Ctrl-Z waits for allow_suspension or
  // wait_for_input, gives the terminal back with its cursor, and stops the program. One object at a time.
  explicit Keyboard(int screen);
  ~Keyboard();
  Keyboard(const Keyboard&) = delete;
  Keyboard& operator=(const Keyboard&) = delete;

  // To be waited for; -1 where there are no keys, also while the program is in the background.
  int descriptor() const;

  // Whether somebody else has the terminal, and nothing is to be drawn there.
  bool is_in_background() const;

  // Takes the terminal that Ctrl-Z gave back. True when it did: what was drawn is not where it was.
  bool take_again();

  // What was pressed; empty when nothing was.
  std::string read_keys();

 private:
  void take_keys();

  int descriptor_ = -1;
  int screen_;
};

// Ctrl-Z that came during a call of the driver takes effect now: it would have the call fail.
void allow_suspension();

}  // namespace plc_host
