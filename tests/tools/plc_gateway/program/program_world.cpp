// The programs of program_world.h.
#include "tests/tools/plc_gateway/program/program_world.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>

#include "tests/support/loopback.h"
#include "tests/tools/plc_gateway/tag_line.h"

namespace gateway_test {
namespace {

bool answers(uint16_t port) {
  const plc_test::ScopedDescriptor socket_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(plc_test::kLoopbackAddress);
  return connect(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

}  // namespace

ProgramWorld::ProgramWorld() {
  std::filesystem::create_directory(folder.file("journal"));
  std::filesystem::permissions(folder.file("journal"), std::filesystem::perms::owner_all);
  folder.write("machine.csv", plc_gateway_test::tag_line("Motor.Speed", "DINT") +
                                  plc_gateway_test::tag_line("Motor.Name", "STRING", "", "20"));
}

void ProgramWorld::start_controller() {
  controller_port = controllers_port_.port();
  const std::string listen = "127.0.0.1:" + std::to_string(controller_port);
  controller = std::make_unique<plc_test::RunningSim>(
      PLC_TEST_SIMULATOR, std::vector<std::string>{"--listen", listen, folder.file("machine.csv")});
}

void ProgramWorld::start_broker(const std::string& lines) {
  broker_port = brokers_port_.port();
  const std::string config = "listener " + std::to_string(broker_port) + " 127.0.0.1\n" + lines;
  const std::vector<std::string> words = {PLC_TEST_MOSQUITTO, "-c", folder.write("broker.conf", config), "-v"};
  // The line that is waited for must not be that of a broker before.
  std::filesystem::remove(folder.file("broker.err"));
  broker = std::make_unique<plc_host_test::Child>(words, folder.file("broker.out"), folder.file("broker.err"));
  if (broker->wait_for(" running\n") && answers(broker_port)) return;
  FAIL() << "no broker: " << folder.read("broker.err");
}

void ProgramWorld::stop_broker() {
  broker->signal(SIGKILL);
  broker->wait();
  broker.reset();
}

std::string ProgramWorld::config(const std::vector<std::pair<std::string, std::string>>& changes) const {
  std::string text =
      "[controller]\n"
      "name = \"device\"\n"
      "address = \"127.0.0.1\"\n"
      "port = " +
      std::to_string(controller_port) +
      "\n"
      "tags = \"machine.csv\"\n"
      "reply_timeout_s = 1\n"
      "driver = \"" PLC_TEST_GUARDED
      "\"\n"
      "[broker]\n"
      "url = \"mqtt://127.0.0.1:" +
      std::to_string(broker_port) +
      "\"\n"
      "[sparkplug]\n"
      "group = \"Plant\"\n"
      "edge_node = \"node\"\n"
      "[json]\n"
      "topic = \"json/{name}\"\n"
      "[[poll]]\n"
      "every_ms = 50\n"
      "names = [\"Motor.Speed\"]\n"
      "[journal]\n"
      "folder = \"journal\"\n"
      "[metrics]\n"
      "listen = \"127.0.0.1:0\"\n";
  for (const auto& [from, to] : changes) {
    const size_t at = text.find(from);
    if (at == std::string::npos) {
      ADD_FAILURE() << "the configuration has no " << from;
    } else {
      text.replace(at, from.size(), to);
    }
  }
  return text;
}

std::string ProgramWorld::write_config(const std::vector<std::pair<std::string, std::string>>& changes) const {
  return folder.write("gateway.toml", config(changes));
}

void ProgramWorld::start_gateway(const std::vector<std::pair<std::string, std::string>>& changes) {
  const std::vector<std::string> words = {PLC_TEST_GATEWAY, "run", write_config(changes)};
  gateway = std::make_unique<plc_host_test::Child>(words, folder.file("gateway.out"), folder.file("gateway.err"));
}

plc_host_test::Outcome ProgramWorld::run(const std::vector<std::string>& words) const {
  std::vector<std::string> all = {PLC_TEST_GATEWAY};
  all.insert(all.end(), words.begin(), words.end());
  plc_host_test::Child child(all, folder.file("run.out"), folder.file("run.err"));
  plc_host_test::Outcome outcome;
  outcome.code = child.wait();
  outcome.out = folder.read("run.out");
  outcome.err = folder.read("run.err");
  return outcome;
}

int ProgramWorld::end_gateway() {
  gateway->signal(SIGTERM);
  return gateway->wait();
}

std::string ProgramWorld::page(const std::string& path) const {
  const std::string mark = "event=metrics url=http://127.0.0.1:";
  if (!logs("/metrics\n")) return "no metrics: " + log();
  const std::string text = log();
  const auto port = static_cast<uint16_t>(std::strtoul(&text[text.rfind(mark) + mark.size()], nullptr, 10));
  const plc_test::ScopedDescriptor visitor(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(plc_test::kLoopbackAddress);
  if (connect(visitor.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) return "not connected";
  const std::string request = "GET " + path + " HTTP/1.1\r\nHost: localhost\r\n\r\n";
  send(visitor.get(), request.data(), request.size(), MSG_NOSIGNAL);
  std::string answer;
  char buffer[4096];
  for (ssize_t count = 1; count > 0;) {
    count = recv(visitor.get(), buffer, sizeof buffer, 0);
    if (count > 0) answer.append(buffer, static_cast<size_t>(count));
  }
  return answer;
}

}  // namespace gateway_test
