// plc-gateway with a simulated controller and a real broker, each a program of its own.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>

#include "tests/support/loopback.h"
#include "tests/tools/plc_gateway/program/program_world.h"
#include "tests/tools/plc_gateway/program/subscriber.h"

namespace gateway_test {
namespace {

using testing::AllOf;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

const std::string kNodeBirth = "spBv1.0/Plant/NBIRTH/node";
const std::string kNodeDeath = "spBv1.0/Plant/NDEATH/node";
const std::string kDeviceBirth = "spBv1.0/Plant/DBIRTH/node/device";
const std::string kDeviceDeath = "spBv1.0/Plant/DDEATH/node/device";
const std::string kDeviceData = "spBv1.0/Plant/DDATA/node/device";
const std::string kSpeed = "json/Motor.Speed";

class GatewayProgram : public testing::Test {
 protected:
  void start_all() {
    world.start_controller();
    world.start_broker();
    host = std::make_unique<Subscriber>(world.broker_port);
    ASSERT_TRUE(host->is_there());
    world.start_gateway();
    ASSERT_TRUE(host->hears(kDeviceBirth)) << world.log();
  }
  // Whether the page comes to begin so.
  bool shows(const std::string& path, const std::string& beginning) {
    for (int i = 0; i < 1000; ++i) {
      if (world.page(path).rfind(beginning, 0) == 0) return true;
    }
    return false;
  }

  ProgramWorld world;
  std::unique_ptr<Subscriber> host;
};

TEST_F(GatewayProgram, Values_ArriveAndNothingIsOnStandardOutput) {
  start_all();
  EXPECT_TRUE(host->hears(kNodeBirth));
  world.controller->tell("set Motor.Speed 1234");
  EXPECT_TRUE(host->hears(kSpeed, "\"value\":1234,\"quality\":\"good\""));
  EXPECT_TRUE(host->hears(kDeviceData));
  EXPECT_EQ(world.end_gateway(), 0);
  EXPECT_THAT(world.out(), IsEmpty());
}

TEST_F(GatewayProgram, ClosedStandardStreams_AreNoPlaceForTheLog) {
  world.start_controller();
  world.start_broker();
  host = std::make_unique<Subscriber>(world.broker_port);
  const std::vector<std::string> words = {"/bin/sh", "-c", R"(exec "$0" run "$1" <&- >&- 2>&-)", PLC_TEST_GATEWAY,
                                          world.write_config()};
  world.gateway =
      std::make_unique<plc_host_test::Child>(words, world.folder.file("gateway.out"), world.folder.file("gateway.err"));
  EXPECT_TRUE(host->hears(kSpeed, "\"quality\":\"good\""));
  EXPECT_EQ(world.end_gateway(), 0);
  EXPECT_TRUE(host->hears(kNodeDeath));
}

TEST_F(GatewayProgram, Terminated_TellsTheDeathOfTheNode) {
  start_all();
  EXPECT_EQ(world.end_gateway(), 0);
  EXPECT_TRUE(host->hears(kNodeDeath));
  EXPECT_THAT(world.log(), HasSubstr("level=info event=stopped unconfirmed_rows="));
}

TEST_F(GatewayProgram, Killed_LeavesItsDeathToTheBroker) {
  start_all();
  world.gateway->signal(SIGKILL);
  EXPECT_TRUE(host->hears(kNodeDeath));
}

TEST_F(GatewayProgram, BrokerThatWasAway_HearsWhatChangedMeanwhileAsHistory) {
  start_all();
  world.stop_broker();
  ASSERT_TRUE(world.logs("event=broker_lost"));
  world.controller->tell("set Motor.Speed 77");
  ASSERT_TRUE(world.logs("connection refused: nothing listens on 127.0.0.1:"));
  // The value is in the journal when the page says so.
  for (int i = 0; i < 1000 && world.page("/metrics").find("\nplc_gateway_journal_rows 0\n") != std::string::npos; ++i) {
  }
  world.controller->tell("set Motor.Speed 78");
  world.start_broker();
  host = std::make_unique<Subscriber>(world.broker_port);
  EXPECT_TRUE(host->hears(kDeviceBirth));
  EXPECT_TRUE(host->hears(kSpeed, "\"value\":77,\"quality\":\"good\"")) << world.log();
  EXPECT_TRUE(host->hears(kSpeed, "\"historical\":true"));
  EXPECT_TRUE(host->hears(kSpeed, "\"value\":78,\"quality\":\"good\""));
}

TEST_F(GatewayProgram, ControllerThatDies_IsToldAndFoundAgain) {
  start_all();
  host->forget();
  world.stop_controller();
  EXPECT_TRUE(host->hears(kDeviceDeath));
  EXPECT_TRUE(host->hears(kSpeed, "\"value\":null"));
  EXPECT_TRUE(shows("/healthz", "HTTP/1.1 503"));
  EXPECT_THAT(world.page("/healthz"), HasSubstr("\r\n\r\nthe controller is not polled: "));
  world.start_controller();
  EXPECT_TRUE(host->hears(kDeviceBirth));
  EXPECT_TRUE(shows("/healthz", "HTTP/1.1 200"));
  EXPECT_THAT(world.log(), AllOf(HasSubstr("level=warning event=controller_lost"), HasSubstr("event=controller_up")));
  EXPECT_THAT(world.log(), ContainsRegex("event=controller_lost why=[a-z-]+ reason=\"[^\"]+\" what_to_do=\"[^\"]+\""));
}

TEST_F(GatewayProgram, VariableThatIsRefused_IsLoggedWithTheRemedy) {
  start_all();
  world.controller->tell("fault refuse on=read");
  ASSERT_TRUE(world.logs("event=variable_bad name=Motor.Speed ")) << world.log();
  EXPECT_THAT(world.log(),
              ContainsRegex("event=variable_bad name=Motor.Speed reason=\"[^\"]+\" what_to_do=\"[^\"]+\""));
}

TEST_F(GatewayProgram, CommandThatIsTooLong_IsLoggedWithItsSizeAndTheLimit) {
  start_all();
  const std::string topic = "spBv1.0/Plant/DCMD/node/device";
  ASSERT_TRUE(host->say(topic, std::string(size_t{300} * 1024, 'x')));
  ASSERT_TRUE(host->hears(topic));
  ASSERT_TRUE(world.logs("event=message_too_long")) << world.log();
  EXPECT_THAT(
      world.log(),
      HasSubstr("level=warning event=message_too_long topic=spBv1.0/Plant/DCMD/node/device bytes=307200 limit=262144 "
                "reason=\"the gateway dropped it unread, and no result is published: no command is so long\" "
                "what_to_do=\"see what publishes to this topic; a limit in the broker keeps such messages away\"\n"));
}

// Longer than a part of a name can be: nobody is asked for it.
const std::string kNobody(64, 'a');

TEST_F(GatewayProgram, ControllerWhoseNameNobodyKnows_IsADeadOne) {
  world.start_controller();
  world.start_broker();
  host = std::make_unique<Subscriber>(world.broker_port);
  world.start_gateway({{"address = \"127.0.0.1\"", "address = \"" + kNobody + "\""}});
  EXPECT_TRUE(host->hears(kNodeBirth)) << world.log();
  EXPECT_TRUE(world.logs("event=controller_away why=no-connection reason=\"'" + kNobody +
                         "' is not an address, and the system knows no host of that name"));
  EXPECT_THAT(world.page("/healthz"), HasSubstr("the controller is not polled: '" + kNobody + "' is not an address"));
  EXPECT_EQ(world.end_gateway(), 0);
  EXPECT_TRUE(host->hears(kNodeDeath));
}

TEST_F(GatewayProgram, BrokerWhoseNameNobodyKnows_IsTriedAgain) {
  world.start_controller();
  world.start_broker();
  const std::string port = std::to_string(world.broker_port);
  world.start_gateway({{"mqtt://127.0.0.1:" + port, "mqtt://" + kNobody + ":" + port}});
  EXPECT_TRUE(world.logs("event=broker_away reason=\"no address is known of '" + kNobody +
                         "': see the broker's url for its spelling\""))
      << world.log();
  EXPECT_TRUE(world.logs("event=controller_up"));
  EXPECT_EQ(world.end_gateway(), 0);
}

TEST_F(GatewayProgram, WrongPassword_IsToldWithWhatToDo) {
  world.start_controller();
  const std::string make = "touch '" + world.folder.file("passwords") + "' && chmod 700 '" +
                           world.folder.file("passwords") + "' && mosquitto_passwd -b '" +
                           world.folder.file("passwords") + "' joe secret && chmod 755 '" + world.folder.path() +
                           "' && chmod 644 '" + world.folder.file("passwords") + "'";
  ASSERT_EQ(std::system(make.c_str()), 0);
  world.start_broker("allow_anonymous false\npassword_file " + world.folder.file("passwords") + "\n");
  world.folder.write("secret", "wrong\n");
  world.start_gateway({{"[sparkplug]", "username = \"joe\"\npassword_file = \"secret\"\n[sparkplug]"}});
  EXPECT_TRUE(
      world.logs("event=broker_away reason=\"not authorised: the broker does not take this user name with this "
                 "password: see username, password_file and the broker's own list\""));
  EXPECT_TRUE(world.logs("event=controller_up"));
  EXPECT_THAT(world.page("/healthz"),
              AllOf(StartsWith("HTTP/1.1 200"), HasSubstr("ok; the broker is being tried: not authorised: ")));
  EXPECT_EQ(world.end_gateway(), 0);
}

TEST_F(GatewayProgram, Metrics_AreThoseOfThisGateway) {
  start_all();
  const std::string page = world.page("/metrics");
  EXPECT_THAT(page, StartsWith("HTTP/1.1 200 OK\r\n"));
  EXPECT_THAT(page, HasSubstr("group=\"Plant\",edge_node=\"node\",device=\"device\"} 1\n"));
  EXPECT_THAT(page, HasSubstr("\nplc_gateway_controller_up 1\n"));
  EXPECT_THAT(page, HasSubstr("\nplc_gateway_births_out 1\n"));
  EXPECT_THAT(world.page("/other"), StartsWith("HTTP/1.1 404"));
}

TEST_F(GatewayProgram, HangUp_TakesTheNewPollsInTheSameProcess) {
  start_all();
  host->forget();
  world.write_config({{"[\"Motor.Speed\"]", "[\"Motor.*\"]"}});
  world.gateway->signal(SIGHUP);
  EXPECT_TRUE(host->hears(kNodeDeath));
  EXPECT_TRUE(host->hears("json/Motor.Name", "\"quality\":\"good\""));
  EXPECT_TRUE(world.logs("event=reloaded"));
  EXPECT_TRUE(shows("/metrics", "HTTP/1.1 200"));
  EXPECT_THAT(world.page("/metrics"), HasSubstr("\nplc_gateway_reloads_total 1\n"));
}

TEST_F(GatewayProgram, HangUpWithMistakes_TellsThemAndGoesOn) {
  start_all();
  world.write_config({{"[\"Motor.Speed\"]", "[\"Motor.Sped\"]"}});
  world.gateway->signal(SIGHUP);
  EXPECT_TRUE(world.logs("event=reload_refused"));
  EXPECT_THAT(world.log(), AllOf(HasSubstr("level=error event=config_error"), HasSubstr("Motor.Speed")));
  host->forget();
  world.controller->tell("set Motor.Speed 5");
  EXPECT_TRUE(host->hears(kSpeed, "\"value\":5"));
  EXPECT_FALSE(host->has_heard(kNodeDeath));
}

TEST_F(GatewayProgram, HangUpWithAPipeForItsAuthorities_IsRefusedAndEndsWhenAsked) {
  start_all();
  const std::string pipe = world.folder.file("pipe");
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  world.write_config({{"mqtt://127.0.0.1:" + std::to_string(world.broker_port) + "\"\n",
                       "mqtts://127.0.0.1:" + std::to_string(world.broker_port) + "\"\nca_file = \"pipe\"\n"}});
  world.gateway->signal(SIGHUP);
  EXPECT_TRUE(world.logs("event=reload_refused"));
  EXPECT_THAT(world.log(), HasSubstr("text=\"cannot read " + pipe +
                                     ": it is not a regular file; correct the path, or let the gateway's user read "
                                     "it\""));
  EXPECT_EQ(world.end_gateway(), 0);
}

TEST_F(GatewayProgram, RemovedJournal_IsToldOnceAndPublishingGoesOn) {
  start_all();
  std::filesystem::remove_all(world.folder.file("journal"));
  EXPECT_TRUE(world.logs("event=journal_removed"));
  EXPECT_THAT(world.log(),
              HasSubstr("level=warning event=journal_removed folder=" + world.folder.file("journal") +
                        " reason=\"its files were removed or replaced: what is written goes when the gateway ends\" "
                        "what_to_do=\"see that the folder is there, wait until plc_gateway_journal_values is 0, and "
                        "start the gateway again\"\n"));
  EXPECT_THAT(world.page("/metrics"), HasSubstr("\nplc_gateway_journal_removed 1\n"));
  world.controller->tell("set Motor.Speed 1234");
  EXPECT_TRUE(host->hears(kSpeed, "\"value\":1234,\"quality\":\"good\""));
  EXPECT_EQ(world.end_gateway(), 0);
  EXPECT_EQ(world.log().find("journal_removed"), world.log().rfind("journal_removed"));
}

TEST_F(GatewayProgram, TooFewDescriptors_AreToldBeforeItBegins) {
  world.controller_port = world.broker_port = 1;
  const std::vector<std::string> words = {"/bin/sh", "-c", R"(ulimit -n "$2"; exec "$0" run "$1")", PLC_TEST_GATEWAY,
                                          world.write_config()};
  for (const char* most : {"8", "16", "30"}) {
    std::vector<std::string> limited = words;
    limited.emplace_back(most);
    plc_host_test::Child child(limited, world.folder.file("run.out"), world.folder.file("run.err"));
    EXPECT_EQ(child.wait(), 1) << most;
    EXPECT_EQ(
        world.folder.read("run.err"),
        "plc-gateway: it needs 40 descriptors besides those that are open (Too many open files): raise the limit, "
        "ulimit -n or LimitNOFILE\n");
  }
}

TEST_F(GatewayProgram, TooSmallFiles_AreToldBeforeItBegins) {
  world.controller_port = world.broker_port = 1;
  const auto run_with = [&](const char* blocks, const std::string& config) {
    const std::vector<std::string> limited = {"/bin/sh",        "-c",   R"(ulimit -f "$2"; exec "$0" run "$1")",
                                              PLC_TEST_GATEWAY, config, blocks};
    plc_host_test::Child child(limited, world.folder.file("run.out"), world.folder.file("run.err"));
    return child.wait();
  };
  const std::string config = world.write_config();
  // In blocks of 512 bytes.
  for (const auto& [blocks, bytes] : {std::pair("8", "4096"), std::pair("6143", "3145216")}) {
    EXPECT_EQ(run_with(blocks, config), 1) << blocks;
    EXPECT_EQ(world.folder.read("run.err"), "plc-gateway: it needs files of 3 MiB (the limit is " + std::string(bytes) +
                                                " bytes): raise the limit, ulimit -f or LimitFSIZE\n");
  }
  // With 3 MiB it comes to its configuration.
  EXPECT_EQ(run_with("6144", world.folder.file("none.toml")), 4);
}

TEST_F(GatewayProgram, JournalOfAnotherGateway_IsNotShared) {
  start_all();
  const plc_host_test::Outcome second = world.run({"run", world.folder.file("gateway.toml")});
  EXPECT_EQ(second.code, 8);
  EXPECT_THAT(second.err, StartsWith("plc-gateway: "));
  const plc_host_test::Outcome shown = world.run({"journal", world.folder.file("gateway.toml")});
  EXPECT_EQ(shown.code, 8);
  EXPECT_EQ(shown.err, "plc-gateway: " + world.folder.file("journal/journal.sqlite") +
                           ": a gateway runs with it; its /metrics tells the same, or end it first\n");
}

TEST_F(GatewayProgram, Check_TellsMistakesWithTheirPlaces) {
  world.controller_port = world.broker_port = 1;
  const plc_host_test::Outcome good = world.run({"check", world.write_config()});
  EXPECT_EQ(good.code, 0) << good.err;
  EXPECT_THAT(good.out, HasSubstr("gateway.toml: 1 variable in 1 poll, 0 commands: no mistakes\n"));
  world.folder.write("machine.csv", world.folder.read("machine.csv") + "Small,BYTE,,,,,,9,1,0,0,,DM\n");
  const plc_host_test::Outcome less =
      world.run({"check", world.write_config({{"\"Motor.Speed\"", "\"Motor.Speed\", \"*\""}})});
  EXPECT_THAT(less.out, HasSubstr("gateway.toml: 2 variables in 1 poll, 1 left out, 0 commands: no mistakes\n"));
  EXPECT_THAT(less.err, HasSubstr(": note: 1 of the 3 variables that * fits is left out: Small cannot be read: "));
  const plc_host_test::Outcome bad = world.run({"check", world.write_config({{"every_ms", "evry_ms"}})});
  EXPECT_EQ(bad.code, 4);
  EXPECT_THAT(bad.out, IsEmpty());
  EXPECT_THAT(bad.err, AllOf(HasSubstr("gateway.toml:16:1: error: "), HasSubstr("cannot be used: ")));
}

TEST_F(GatewayProgram, FileWithoutAName_IsTold) {
  for (const char* command : {"check", "run", "journal"}) {
    const plc_host_test::Outcome outcome = world.run({command, ""});
    EXPECT_EQ(outcome.code, 4) << command;
    EXPECT_EQ(outcome.err,
              "'': error: cannot read '': No such file or directory\nplc-gateway: '': cannot be used: 1 mistake\n");
  }
}

TEST_F(GatewayProgram, FullStandardOutput_IsToldWithTheReason) {
  start_all();
  const std::string config = world.folder.file("gateway.toml");
  EXPECT_EQ(world.end_gateway(), 0);
  const std::vector<std::vector<std::string>> commands = {
      {"--help"}, {"--version"}, {"check", "--help"}, {"check", config}, {"journal", config}};
  for (std::vector<std::string> words : commands) {
    words.insert(words.begin(), {"/bin/sh", "-c", R"(exec "$0" "$@" > /dev/full)", PLC_TEST_GATEWAY});
    plc_host_test::Child child(words, world.folder.file("run.out"), world.folder.file("run.err"));
    EXPECT_EQ(child.wait(), 8) << words[4];
    EXPECT_EQ(world.folder.read("run.err"), "plc-gateway: standard output cannot be written: No space left on device\n")
        << words[4];
  }
}

TEST_F(GatewayProgram, WrongCommandLines_EndWithTheirCode) {
  const std::vector<std::pair<std::vector<std::string>, std::string>> wrong = {
      {{}, "which command: run, check or journal?"},
      {{"walk"}, "unknown command 'walk'; the commands are run, check or journal; plc-gateway --help tells more"},
      {{"chek", "x"}, "unknown command 'chek', did you mean check?"},
      {{"journal", "--row", "x"}, "unknown option --row, did you mean --rows?"},
      {{"run"}, "FILE is missing; plc-gateway run --help tells more"},
  };
  for (const auto& [words, said] : wrong) {
    const plc_host_test::Outcome outcome = world.run(words);
    EXPECT_EQ(outcome.code, 2);
    EXPECT_EQ(outcome.err, "plc-gateway: " + said + "\n");
  }
  EXPECT_THAT(world.run({"--version"}).out, StartsWith("plc-gateway "));
  EXPECT_THAT(world.run({"--help"}).out, HasSubstr("Exit codes:\n"));
  EXPECT_EQ(world.run({"run", world.folder.file("none.toml")}).code, 4);
}

TEST_F(GatewayProgram, MetricsAddressThatIsTaken_EndsItWithWhatToDo) {
  const plc_test::LoopbackSocket taken(SOCK_STREAM, 1);
  world.controller_port = world.broker_port = 1;
  const std::string place = "127.0.0.1:" + std::to_string(taken.port());
  const plc_host_test::Outcome outcome = world.run({"run", world.write_config({{"127.0.0.1:0", place}})});
  EXPECT_EQ(outcome.code, 1);
  EXPECT_THAT(outcome.err, HasSubstr("plc-gateway: metrics: cannot listen on " + place +
                                     ": address already in use; choose another address in [metrics] listen\n"));
}

// What the supervisor is told, over a socket that is the test's.
TEST_F(GatewayProgram, Supervisor_HearsOfItsBeginningItsStateAndItsEnd) {
  const plc_test::ScopedDescriptor supervisor(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const std::string path = world.folder.file("notify");
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  ASSERT_EQ(bind(supervisor.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  timeval patience{};
  patience.tv_sec = 30;
  setsockopt(supervisor.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
  const auto hears = [&](const std::string& text) {
    char buffer[1000];
    for (;;) {
      const ssize_t count = recv(supervisor.get(), buffer, sizeof buffer, 0);
      if (count <= 0) return false;
      if (std::string(buffer, static_cast<size_t>(count)).rfind(text, 0) == 0) return true;
    }
  };
  setenv("NOTIFY_SOCKET", path.c_str(), 1);
  start_all();
  unsetenv("NOTIFY_SOCKET");
  EXPECT_TRUE(hears("READY=1"));
  EXPECT_TRUE(hears("STATUS=controller answers, broker connected, 0 rows unconfirmed"));
  EXPECT_TRUE(hears("WATCHDOG=1"));
  world.gateway->signal(SIGHUP);
  EXPECT_TRUE(hears("RELOADING=1\nMONOTONIC_USEC="));
  EXPECT_TRUE(hears("READY=1"));
  EXPECT_EQ(world.end_gateway(), 0);
  EXPECT_TRUE(hears("STOPPING=1"));
}

// The broker has an authority of the test's own, and wants a name and a password.
TEST_F(GatewayProgram, TlsWithItsOwnAuthorityAndAPassword_Serves) {
  world.start_controller();
  const std::string& at = world.folder.path();
  const std::string make =
      "cd '" + at +
      "' && exec >/dev/null 2>&1 && "
      "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -keyout ca.key -out ca.pem -subj /CN=own "
      "-days 2 && "
      "openssl req -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -keyout b.key -out b.csr -subj /CN=localhost && "
      "printf 'subjectAltName=DNS:localhost' > names && "
      "openssl x509 -req -in b.csr -CA ca.pem -CAkey ca.key -CAcreateserial -out b.pem -days 2 -extfile names && "
      "touch passwords && chmod 700 passwords && mosquitto_passwd -b passwords joe secret && "
      "chmod 755 . && chmod 644 b.key passwords";
  ASSERT_EQ(std::system(make.c_str()), 0);
  const std::string port = std::to_string(plc_test::LoopbackSocket(SOCK_STREAM).port());
  world.start_broker("allow_anonymous true\nlistener " + port + " 127.0.0.1\nallow_anonymous false\npassword_file " +
                     at + "/passwords\ncertfile " + at + "/b.pem\nkeyfile " + at + "/b.key\n");
  const std::string url = "mqtt://127.0.0.1:" + std::to_string(world.broker_port) + "\"\n";
  world.folder.write("secret", "secret\n");
  const std::string named = "username = \"joe\"\npassword_file = \"secret\"\n";
  const std::string tls = "mqtts://localhost:" + port + "\"\n" + named;
  world.start_gateway({{url, tls}});
  EXPECT_TRUE(world.logs("the certificate of localhost:" + port +
                         " is not signed by the authorities that this system trusts: set ca_file to the broker's own"));
  EXPECT_EQ(world.end_gateway(), 0);
  world.start_gateway({{url, tls + "ca_file = \"ca.pem\"\n"}});
  EXPECT_TRUE(world.logs("event=births_out")) << world.log();
  EXPECT_EQ(world.end_gateway(), 0);
  world.start_gateway({{url, "mqtts://127.0.0.1:" + port + "\"\nca_file = \"ca.pem\"\n" + named}});
  EXPECT_TRUE(world.logs("is not for '127.0.0.1': the url must have a name that it is for"));
  EXPECT_EQ(world.end_gateway(), 0);
}

}  // namespace
}  // namespace gateway_test
