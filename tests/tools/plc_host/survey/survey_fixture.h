// plc-host survey as a program, with what its tests ask of its files and of the simulator.
#pragma once

#include <map>
#include <nlohmann/json.hpp>
#include <set>

#include "tests/tools/plc_host/program_fixture.h"

namespace plc_host_test {

using Json = nlohmann::json;

// The way of each kind of write.
inline constexpr const char* kScratch[] = {"Speed", "Ready",    "Motor.Run", "Line[2].On",
                                           "Text",  "Table[3]", "MAIN/Count"};

// The same as the simulator names what is written.
inline std::set<std::string> named_elements() {
  return {"Line[2].On", "MAIN/Count", "Motor.Run", "Ready", "Speed", "Table[3]", "Text[0]"};
}

class SurveyTest : public ProgramTest {
 protected:
  // What plc-host read cannot ask for is not as declared.
  void SetUp() override {
    ProgramTest::SetUp();
    std::string asked;
    for (const std::string& line : lines_of(kTagFile)) {
      if (line.compare(0, 3, "Odd") != 0 && line.compare(0, 3, "Idx") != 0) asked += line + "\n";
    }
    write_file("machine.csv", asked);
  }

  // The words of a survey of the simulator at the test's port.
  std::vector<std::string> words(const std::vector<std::string>& more) const {
    std::vector<std::string> all = {"survey",   "--address",  "127.0.0.1:" + port_, "--tags", path("machine.csv"),
                                    "--output", path("found")};
    all.insert(all.end(), more.begin(), more.end());
    return all;
  }

  Json report() const { return Json::parse(file_text(path("found/report.json"))); }

  bool has_all_files() const {
    bool has_all = true;
    for (const char* name : {"report.json", "survey.pcapng", "profile.toml"}) {
      has_all = has_all && !file_text(path(std::string("found/") + name)).empty();
    }
    return has_all;
  }

  // How often each element was written, by the simulator's own count; its report is there once it has ended.
  std::map<std::string, int> written() const {
    std::map<std::string, int> counts;
    const Json sim = Json::parse(file_text(path("sim.json")));
    for (const Json& row : sim.at("asked")) {
      if (row.at("written") > 0) counts[row.at("name")] = row.at("written");
    }
    return counts;
  }

  std::vector<std::string> scratch_options() const {
    std::vector<std::string> options;
    for (const char* name : kScratch) options.insert(options.end(), {"--write", name});
    return options;
  }

  // The values of all variables, by plc-host read.
  std::map<std::string, std::string> values() {
    std::map<std::string, std::string> values;
    const Outcome outcome =
        run({"read", "--all", "--address", "127.0.0.1:" + port_, "--tags", path("machine.csv"), "--json"});
    for (const std::string& line : lines_of(outcome.out)) {
      const Json result = Json::parse(line);
      if (result.at("state") == "good") values[result.at("name")] = result.at("value").dump();
    }
    return values;
  }

  void end(Child& simulator) {
    simulator.close_input();
    EXPECT_EQ(simulator.wait(), 0) << file_text(path("sim_err"));
  }

  // A survey that is stopped as soon as it says that it is at the step.
  int interrupted_at(const std::string& step, const std::vector<std::string>& more) {
    Child survey(host_words(words(more)), path("out"), path("err"));
    EXPECT_TRUE(survey.wait_for("survey: step " + step));
    survey.signal(SIGINT);
    return survey.wait();
  }
};

}  // namespace plc_host_test
