// Reads one variable of several controllers at once, a thread for each:  two_machines NAME (ADDRESS PORT TAGS)...
#include <plc_client.h>

#include <cstdio>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "number_argument.h"

int main(int count, char** words) {
  if (count < 5 || count % 3 != 2) {
    std::fprintf(stderr, "usage: two_machines NAME (ADDRESS PORT TAGS)...\n");
    return 2;
  }
  const std::string name = words[1];
  try {
    std::vector<std::unique_ptr<plc_client::Controller>> machines;
    for (int i = 2; i < count; i += 3) {
      plc_client::Options options;
      options.address = words[i];
      options.port = port_argument(words[i + 1]);
      options.tags = {words[i + 2]};
      machines.push_back(std::make_unique<plc_client::Controller>(options));
      machines.back()->tag(name);  // a name that it does not have is told here
    }
    std::vector<plc_client::Reading> readings(machines.size());
    std::vector<std::thread> threads;
    for (size_t i = 0; i < machines.size(); ++i) {
      threads.emplace_back([&, i] { readings[i] = machines[i]->read(name); });
    }
    for (std::thread& thread : threads) thread.join();
    for (size_t i = 0; i < readings.size(); ++i) {
      const std::string text = readings[i].ok() ? readings[i].value.to_string() : readings[i].error.text;
      std::printf("machine %zu: %s\n", i + 1, text.c_str());
    }
    return 0;
  } catch (const plc_client::Error& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 2;
  }
}
