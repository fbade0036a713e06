// Tests of which build of the driver plc-host takes, and of what it says of it.
#include <filesystem>
#include <nlohmann/json.hpp>

#include "tests/tools/plc_host/program_fixture.h"

namespace {

using namespace plc_host_test;
using Json = nlohmann::json;
namespace fs = std::filesystem;

class BuildTest : public ProgramTest {
 protected:
  // A copy of the program in tools/bin/, with the libraries that a test puts beside it.
  void SetUp() override {
    ProgramTest::SetUp();
    fs::create_directories(path("tools/bin"));
    fs::copy_file(PLC_HOST_PROGRAM, path("tools/bin/plc-host"));
  }
  void install(const char* library, const std::string& folder) {
    fs::create_directories(path(folder));
    fs::copy_file(library, path(folder + "/libplc_driver.so.1"));
  }
  Outcome run_copy(std::vector<std::string> words) {
    words.insert(words.begin(), path("tools/bin/plc-host"));
    Outcome outcome;
    Child child(words, path("out"), path("err"));
    outcome.code = child.wait();
    outcome.out = file_text(path("out"));
    outcome.err = file_text(path("err"));
    return outcome;
  }
  Json info(const std::vector<std::string>& words = {}) {
    std::vector<std::string> all = {"info", "--json"};
    all.insert(all.end(), words.begin(), words.end());
    return Json::parse(run_copy(all).out);
  }
};

TEST_F(BuildTest, GuardedBuild_IsTakenWhereverItIs) {
  for (const char* folder : {"tools/bin/guarded", "tools/lib/plc_driver/guarded", "src/guarded"}) {
    if (folder == std::string("src/guarded")) fs::create_directory(path("tools/bin/CMakeFiles"));
    install(PLC_HOST_LIBRARY, "tools/bin");
    install(PLC_HOST_GUARDED, folder);
    const Json found = info();
    EXPECT_EQ(found["guarded"], true) << folder;
    EXPECT_EQ(fs::canonical(found["library"].get<std::string>()),
              fs::canonical(path(std::string(folder) + "/libplc_driver.so.1")));
    fs::remove_all(path(folder));
    fs::remove(path("tools/bin/libplc_driver.so.1"));
  }
}

TEST_F(BuildTest, InstalledProgram_TakesNothingFromWhereABuildTreeHasIt) {
  install(PLC_HOST_LIBRARY, "src");
  install(PLC_HOST_GUARDED, "src/guarded");
  install(PLC_HOST_LIBRARY, "tools/lib");
  const Json found = info();
  EXPECT_EQ(found["guarded"], false);
  EXPECT_EQ(fs::canonical(found["library"].get<std::string>()), fs::canonical(path("tools/lib/libplc_driver.so.1")));
  const Outcome outcome = run_copy({"info", "--driver", "guarded"});
  EXPECT_EQ(outcome.code, 3);
  EXPECT_EQ(outcome.err.find("/src/"), std::string::npos) << outcome.err;
}

TEST_F(BuildTest, ContractBuildAlone_IsTakenAndSaid) {
  install(PLC_HOST_LIBRARY, "tools/lib");
  EXPECT_EQ(info()["guarded"], false);
  const std::vector<std::string> read = {"read",        "Speed",           "--sim", path("machine.csv"),
                                         "--simulator", PLC_HOST_SIMULATOR};
  const Outcome outcome = run_copy(read);
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(count_of(outcome.err,
                     " is not the guarded build (1.1.0 contract): it takes any reply for the right one, "
                     "so values and writes are shown as unguarded\n"),
            1U)
      << outcome.err;
  EXPECT_THAT(outcome.out, HasSubstr("  unguarded  "));
}

TEST_F(BuildTest, GuardedBuildThatIsMissing_IsAskedForInVain) {
  install(PLC_HOST_LIBRARY, "tools/bin");
  const Outcome outcome = run_copy({"info", "--driver", "guarded"});
  EXPECT_EQ(outcome.code, 3);
  EXPECT_THAT(outcome.err, HasSubstr("plc-host: there is no guarded build of the driver library; looked for "));
  EXPECT_THAT(outcome.err, HasSubstr("tools/bin/guarded/libplc_driver.so.1, "));
}

TEST_F(BuildTest, FolderOfTheGuardedBuildWithAnotherOne_IsNotTakenForIt) {
  install(PLC_HOST_LIBRARY, "tools/bin/guarded");
  EXPECT_EQ(info()["guarded"], false);
  const Outcome outcome = run_copy({"info", "--driver", "guarded"});
  EXPECT_EQ(outcome.code, 3);
  EXPECT_THAT(outcome.err, HasSubstr(" is not the guarded build but 1.1.0 contract\n"));
}

TEST_F(BuildTest, Driver_ChoosesByWordOrByPath) {
  install(PLC_HOST_LIBRARY, "tools/bin");
  install(PLC_HOST_GUARDED, "tools/bin/guarded");
  EXPECT_EQ(info({"--driver", "contract"})["build"], "1.1.0 contract");
  EXPECT_EQ(info({"--driver", "guarded"})["build"], "1.1.0 guarded");
  EXPECT_EQ(info({"--driver", PLC_HOST_LIBRARY})["library"], PLC_HOST_LIBRARY);
  EXPECT_EQ(info({"--library", PLC_HOST_LIBRARY})["library"], PLC_HOST_LIBRARY);
}

TEST_F(BuildTest, Info_NamesTheBuild) {
  const std::string out = run({"info", "--driver", PLC_HOST_GUARDED}).out;
  EXPECT_EQ(lines_of(out).at(2), "build           1.1.0 guarded");
}

TEST_F(BuildTest, LibraryThatDoesNotSayWhichItIs_CountsAsTheContractAndWorks) {
  const Json found = info({"--driver", PLC_HOST_UNNAMED});
  EXPECT_EQ(found["build"], "contract, unnamed version");
  EXPECT_EQ(found["guarded"], false);
  EXPECT_EQ(found["driver_code"], 722);
}

TEST_F(BuildTest, Write_IsCalledDoneByTheGuardedBuildAlone) {
  const Json guarded = Json::parse(run_on_simulator({"write", "Speed=7", "--json", "--quiet"}).out);
  EXPECT_EQ(guarded["state"], "written");
  EXPECT_EQ(guarded["written"], true);
  EXPECT_TRUE(guarded["verified"].is_null());
  const Json verified = Json::parse(run_on_simulator({"write", "Speed=7", "--json", "--verify"}).out);
  EXPECT_EQ(verified["state"], "verified");
  EXPECT_EQ(verified["verified"], true);
  library_ = PLC_HOST_LIBRARY;
  const Json contract = Json::parse(run_on_simulator({"write", "Speed=7", "--json", "--verify"}).out);
  EXPECT_EQ(contract["state"], "unguarded");
  EXPECT_TRUE(contract["written"].is_null());
  EXPECT_TRUE(contract["verified"].is_null());
}

constexpr char kNotKnownWhether[] =
    "the driver returned 0, which this build does for a refusal too; whether it was written is not known";

TEST_F(BuildTest, RefusedWriteOfTheContractBuild_IsNotCalledWrittenWhenItCannotBeReadBack) {
  library_ = PLC_HOST_LIBRARY;
  const Outcome outcome = run_on_simulator({"write", "--verify", "--json", "--quiet", "--timeout", "1", "Speed=5"},
                                           {"--fault=refuse on=write", "--fault=no-reply on=read"});
  EXPECT_EQ(outcome.code, 7);
  const Json result = Json::parse(outcome.out);
  EXPECT_EQ(result["state"], "no-answer");
  EXPECT_THAT(result["reason"].get<std::string>(),
              StartsWith(std::string(kNotKnownWhether) + "; it cannot be read back: 127.0.0.1:"));
  EXPECT_THAT(result["reason"].get<std::string>(), EndsWith(": no answer within 1 s (3)"));
  EXPECT_TRUE(result["written"].is_null());
  EXPECT_TRUE(result["verified"].is_null());
}

TEST_F(BuildTest, RefusedWriteOfTheContractBuild_IsNotCalledWrittenWhenItReadsBackDifferent) {
  library_ = PLC_HOST_LIBRARY;
  const Outcome outcome =
      run_on_simulator({"write", "--verify", "--json", "--quiet", "Speed=5"}, {"--fault=refuse on=write"});
  EXPECT_EQ(outcome.code, 5);
  const Json result = Json::parse(outcome.out);
  EXPECT_EQ(result["state"], "different");
  EXPECT_EQ(result["reason"], std::string("sent 5, read back 0; ") + kNotKnownWhether);
  EXPECT_TRUE(result["written"].is_null());
  EXPECT_EQ(result["verified"], false);
}

}  // namespace
