// Keys of the terminal that watch draws in, as they are pressed.
#pragma once

#include <termios.h>

#include <string>

namespace plc_host {

class Keyboard {
 public:
  // Takes the keys of standard input where that is a terminal and this program is not in its background. They are not
  // shown and need no Return until the object ends; Ctrl-C stays what it is.
  Keyboard();
  ~Keyboard();
  Keyboard(const Keyboard&) = delete;
  Keyboard& operator=(const Keyboard&) = delete;

  // To be waited for; -1 where there are no keys, also while the program is in the background.
  int descriptor() const;

  // What was pressed; empty when nothing was.
  std::string read_keys();

 private:
  int descriptor_ = -1;
  struct termios before_ {};
};

}  // namespace plc_host
