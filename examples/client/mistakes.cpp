// Makes the mistakes that everybody makes once, and prints what the library says of each:  mistakes ADDRESS PORT TAGS
#include <plc_client.h>

#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "number_argument.h"

namespace {

using plc_client::Controller;
using plc_client::Options;

// Runs something that is wrong; prints the class of the exception and its text.
void show(const char* what, const std::function<void()>& mistake) {
  std::printf("%s\n", what);
  try {
    mistake();
    std::printf("  no exception\n");
  } catch (const plc_client::UnknownVariable& error) {
    std::printf("  UnknownVariable: %s\n", error.what());
  } catch (const plc_client::TypeMismatch& error) {
    std::printf("  TypeMismatch: %s\n", error.what());
  } catch (const plc_client::OutOfRange& error) {
    std::printf("  OutOfRange: %s\n", error.what());
  } catch (const plc_client::ConnectionFailed& error) {
    std::printf("  ConnectionFailed: %s\n", error.what());
  } catch (const plc_client::Error& error) {
    std::printf("  Error: %s\n", error.what());
  }
}

void show_names_and_values(Controller& machine) {
  show("a name with a slip", [&] { machine.read("Motor.Sped"); });
  show("a list with one unknown name", [&] { machine.read({"Motor.Speed", "Motor.Sped"}); });
  show("a local variable without its program", [&] { machine.read("Step"); });
  show("a subscript that is not there", [&] { machine.read("Table[10]"); });
  show("a text for a number", [&] { machine.write("Motor.Speed", "fast"); });
  show("a number for a text", [&] { machine.write("Recipe.Name", 5); });
  show("70000 for an INT", [&] { machine.write("Motor.Steps", 70000); });
  show("a list that is too short", [&] { machine.write("Levels", std::vector<int>{1, 2}); });
  show("a text that is too long", [&] { machine.write("Main/Batch", "a text of twenty-four bytes"); });
  show("a value taken as another type", [&] { machine.read("Motor.Speed").value.as<std::string>(); });
  show("a value that is too large for the type", [&] { machine.read("Motor.Speed").value.as<int8_t>(); });
}

}  // namespace

int main(int count, char** words) {
  if (count != 4) {
    std::fprintf(stderr, "usage: mistakes ADDRESS PORT TAGS\n");
    return 2;
  }
  Options options;
  options.address = words[1];
  options.port = port_argument(words[2]);
  options.tags = {words[3]};
  show("no tag file", [options]() mutable {
    options.tags.clear();
    const Controller machine(options);
  });
  show("a folder without the controller's file", [options]() mutable {
    options.tags = {"examples"};
    const Controller machine(options);
  });
  show("no address", [options]() mutable {
    options.address = "";
    const Controller machine(options);
  });
  show("another port", [options]() mutable {
    options.port = 1;
    Controller machine(options);
    machine.connect();
  });
  try {
    Controller machine(options);
    show_names_and_values(machine);
    return 0;
  } catch (const plc_client::Error& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 2;
  }
}
