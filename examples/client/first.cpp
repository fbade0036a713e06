// Reads a variable of a controller on this machine:  first [PORT]
#include <plc_client.h>

#include <cstdio>

#include "number_argument.h"

int main(int count, char** words) {
  plc_client::Options options;
  options.address = "127.0.0.1";
  if (count > 1) options.port = port_argument(words[1]);
  options.tags = {"examples/tags/"};
  plc_client::Controller press(options);
  const plc_client::Reading speed = press.read("Motor.Speed");
  if (!speed.ok()) {
    std::printf("not read: %s\n", speed.error.text.c_str());
    return 1;
  }
  std::printf("%d\n", speed.value.as<int>());
  return 0;
}
