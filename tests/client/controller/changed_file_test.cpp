// A tag file that is another one than the controller was made of: nothing is asked for by its numbers.
#include <filesystem>

#include "tests/client/controller/controller_fixture.h"

namespace plc_client_test {
namespace {

constexpr char kFileName[] = "PLC7F000001_0.csv";

class ChangedFileTest : public ControllerTest {
 protected:
  void SetUp() override {
    start(first() + second());
    sim_->tell("set First 11");
    sim_->tell("set Second 22");
  }
  static std::string first() { return tag_line("First", "INT"); }
  static std::string second() { return tag_line("Second", "INT"); }
  std::string path() const { return folder_.file(kFileName); }
  std::string words() const {
    return "the tag file " + path() +
           " has changed since it was loaded: make a new Controller, or restart the program, which loads it again";
  }
  // Nothing of the controller works, and nothing is sent.
  void expect_refused(Controller& controller) {
    const unsigned long before = requests();
    Plan plan = controller.plan({"First"});
    EXPECT_EQ(thrown<plc_client::Error>([&] { controller.read(plan); }), words());
    EXPECT_EQ(thrown<plc_client::Error>([&] { controller.read("Second"); }), words());
    EXPECT_EQ(thrown<plc_client::Error>([&] { controller.write("First", 5, Verify::kReadBack); }), words());
    EXPECT_EQ(thrown<plc_client::Error>([&] { controller.connect(); }), words());
    EXPECT_EQ(requests(), before);
    EXPECT_FALSE(controller.state().connected);
    EXPECT_EQ(memory().bits("First", 16), std::vector<uint64_t>{11});
    EXPECT_EQ(memory().bits("Second", 16), std::vector<uint64_t>{22});
  }
};

TEST_F(ChangedFileTest, LinesSwappedBeforeTheFirstUse_AreRefused) {
  Controller controller(options());
  folder_.write(kFileName, second() + first());
  expect_refused(controller);
}

TEST_F(ChangedFileTest, LineInsertedBeforeTheFirstUse_IsRefused) {
  Controller controller(options());
  folder_.write(kFileName, tag_line("Zeroth", "INT") + first() + second());
  expect_refused(controller);
}

TEST_F(ChangedFileTest, LinesSwappedBehindClose_AreRefused) {
  Controller controller(options());
  Plan plan = controller.plan({"First"});
  EXPECT_EQ(bits_of(controller.read(plan).front().value), std::vector<uint64_t>{11});
  folder_.write(kFileName, second() + first());
  // The driver has loaded the file once, and keeps its records until then.
  EXPECT_EQ(bits_of(controller.read(plan).front().value), std::vector<uint64_t>{11});
  controller.close();
  EXPECT_EQ(thrown<plc_client::Error>([&] { controller.read(plan); }), words());
  expect_refused(controller);
  Controller made_anew(options());
  EXPECT_EQ(bits_of(made_anew.read("First").value), std::vector<uint64_t>{11});
}

TEST_F(ChangedFileTest, SecondOfTwoFiles_IsRefusedAsWell) {
  const std::string other = folder_.write("PLC7F000001_1.csv", tag_line("Third", "INT") + tag_line("Fourth", "INT"));
  Controller controller(options());
  folder_.write("PLC7F000001_1.csv", tag_line("Fourth", "INT") + tag_line("Third", "INT"));
  EXPECT_EQ(
      thrown<plc_client::Error>([&] { controller.read("First"); }),
      "the tag file " + other +
          " has changed since it was loaded: make a new Controller, or restart the program, which loads it again");
}

TEST_F(ChangedFileTest, FileThatIsWhatItWasAgain_IsRead) {
  Controller controller(options());
  folder_.write(kFileName, second() + first());
  expect_refused(controller);
  folder_.write(kFileName, first() + second());
  EXPECT_EQ(bits_of(controller.read("First").value), std::vector<uint64_t>{11});
  controller.close();
  folder_.write(kFileName, first() + second());
  EXPECT_EQ(bits_of(controller.read("Second").value), std::vector<uint64_t>{22});
}

TEST_F(ChangedFileTest, FileThatIsGone_IsToldInTheDriversWords) {
  Controller controller(options());
  std::filesystem::remove(path());
  EXPECT_EQ(thrown<plc_client::Error>([&] { controller.read("First"); }),
            "the driver can no longer load the tag file " + path() + "; the driver says: build tag table for " +
                path() + "; the driver says: [PLC] open " + path() +
                " file failed, at line: 263; the driver says: build tag table failed!");
  folder_.write(kFileName, first() + second());
  EXPECT_EQ(bits_of(controller.read("First").value), std::vector<uint64_t>{11});
}

}  // namespace
}  // namespace plc_client_test
