// A world for an edge node that does what a test says: a clock, a controller and a broker, and a journal on disk.
#pragma once

#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "sparkplug_payload.pb.h"
#include "tests/tools/plc_gateway/support/memory_vfs.h"
#include "tools/plc_gateway/node/edge_node.h"

namespace gateway_test {

using plc_gateway::Ms;

struct FakeClock : plc_gateway::Clock {
  Ms wall_ms() const override { return wall; }
  Ms steady_ms() const override { return steady; }
  Ms wall = 1'800'000'000'000;
  Ms steady = 1'000;
};

struct FakeController : plc_gateway::ControllerPort {
  void start_read(size_t piece) override { reading = piece; }
  void start_write(const plc_gateway::WriteJob& job) override { writing = job; }
  std::optional<size_t> reading;
  std::optional<plc_gateway::WriteJob> writing;
};

// A published message, taken apart.
struct Told {
  std::string type;  // "NBIRTH", "DDATA", "fence", "json", ...
  std::string topic;
  std::string text;  // of what is no payload of the standard
  int qos = 0;
  int id = 0;
  plc_gateway::schema::Payload payload;
  std::map<std::string, uint64_t> aliases;  // of NDATA: as the node's birth gave them

  // By its name, or by the alias of the name.
  const plc_gateway::schema::Metric* metric(const std::string& name) const;
};

struct FakeBroker : plc_gateway::BrokerPort {
  void connect(const plc_gateway::Message& message) override;
  void disconnect() override;
  void drop() override;
  bool subscribe(const std::vector<std::string>& filters) override;
  std::optional<int> publish(const plc_gateway::Message& message) override;

  std::optional<plc_gateway::Message> will;  // of the connection under way
  std::vector<std::string> subscribed;
  std::vector<std::string> events;  // "connect", "disconnect", "drop", "subscribe" and types of messages, in order
  std::vector<Told> told;           // since the last take()
  bool takes_messages = true;
  std::optional<size_t> most_bytes;  // of a message that it takes
  std::optional<size_t> most_message_bytes() const override { return most_bytes; }
  bool is_there = true;  // a connect reaches it
  bool sent_connect() const override { return is_there; }
  int last_id = 0;
  std::optional<int> fence;                 // the last one
  std::map<std::string, uint64_t> aliases;  // of the node's last birth
};

// Two groups: "Speed" (INT) and "Name" (STRING) every 100 ms, "Level" (REAL) every 1000 ms with deadband 0.5.
struct World {
  World();
  explicit World(plc_gateway::EdgeNodeOptions options);

  // Another process on the same folder, after a kill.
  void restart();

  // Lets time pass, the node being called when it wants to be; reads are answered at once, with what stands in
  // `samples`, as long as `controller_answers`.
  void pass(Ms ms);
  void answer_read();
  void answer_all();  // until the node asks for nothing more
  // The broker takes the connection and the subscription.
  void let_broker_in();
  // Acknowledges the fence that is out.
  bool acknowledge();

  void set(uint32_t variable, uint64_t bits);
  void set(uint32_t variable, const std::string& text);
  void refuse(uint32_t variable);
  // The types of what was published since the last call, with a blank between them.
  std::string types();
  std::vector<Told> take();
  // Payload of a command, as hosts send them.
  void command(const std::string& topic, const plc_gateway::schema::Payload& payload, bool retained = false);
  void rebirth();

  static plc_gateway::EdgeNodeOptions usual_options();

  plc_test::MemoryDisk disk;
  FakeClock clock;
  FakeController controller;
  FakeBroker broker;
  bool controller_answers = true;
  plc_gateway::EdgeNodeOptions options;
  std::vector<plc_gateway::Sample> samples;
  std::vector<plc_gateway::CommandResult> ended;  // commands
  std::unique_ptr<plc_gateway::Journal> journal;
  std::unique_ptr<plc_gateway::EdgeNode> node;
};

// The broker is there, the controller answers: NBIRTH and DBIRTH are out and acknowledged.
void bring_up(World& world);
// The Quality of a metric; -1 without one.
int32_t quality_of(const plc_gateway::schema::Metric& metric);
// A command for "Speed", sent now.
plc_gateway::schema::Payload speed_command(const World& world, uint32_t value);

}  // namespace gateway_test
