// Reads variables by name:  read_variables ADDRESS PORT TAGS NAME...
#include <plc_client.h>

#include <cstdio>
#include <string>
#include <vector>

#include "number_argument.h"

int main(int count, char** words) {
  if (count < 5) {
    std::fprintf(stderr, "usage: read_variables ADDRESS PORT TAGS NAME...\n");
    return 2;
  }
  try {
    plc_client::Options options;
    options.address = words[1];
    options.port = port_argument(words[2]);
    options.tags = {words[3]};
    plc_client::Controller machine(options);
    const std::vector<std::string> names(words + 4, words + count);
    int failed = 0;
    for (const plc_client::Reading& reading : machine.read(names)) {
      if (reading.ok()) {
        std::printf("%s %s = %s\n", reading.name.c_str(), reading.type.c_str(), reading.value.to_string().c_str());
      } else {
        std::printf("%s: %s\n", reading.name.c_str(), reading.error.text.c_str());
        ++failed;
      }
    }
    return failed == 0 ? 0 : 1;
  } catch (const plc_client::Error& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 2;
  }
}
