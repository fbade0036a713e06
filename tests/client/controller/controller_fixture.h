// A controller of the client library with a plc-sim of its own, and the memory of that to compare values with.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "client/plc_client.h"
#include "tests/support/sim_process.h"
#include "tests/support/temp_dir.h"

namespace plc_client_test {

using plc_client::Controller;
using plc_client::Kind;
using plc_client::Options;
using plc_client::Outcome;
using plc_client::Plan;
using plc_client::Quality;
using plc_client::Reading;
using plc_client::Reason;
using plc_client::Value;
using plc_client::Verify;
using plc_client::WriteResult;

// What the simulator holds, as its dump tells it.
class Memory {
 public:
  explicit Memory(plc_test::RunningSim& sim);

  // The words of each declared element, the last subscript fastest: "6f7b 0db0". variable with its scope.
  const std::vector<std::string>& raw(const std::string& variable) const;
  // The words of every variable, the last one highest; of BOOLs the bit.
  std::vector<uint64_t> bits(const std::string& variable, unsigned width) const;
  // Two characters a word, up to the first zero.
  std::string text(const std::string& variable, size_t declared) const;
  bool operator==(const Memory& other) const { return raw_ == other.raw_; }

 private:
  std::map<std::string, std::vector<std::string>> raw_;
};

// The elements of a value by their bits.
std::vector<uint64_t> bits_of(const Value& value);

// The line of a tag file.
std::string tag_line(const std::string& name, const std::string& type, const std::string& range = "",
                     const std::string& length = "", const std::string& program = "", const std::string& device = "");

class ControllerTest : public testing::Test {
 protected:
  // Starts a simulator with these lines as the tag file of area 0.
  void start(const std::string& tags, const std::vector<std::string>& arguments = {"--sentinel"});
  // For the simulator that runs, with the guarded build.
  Options options() const;
  Memory memory() { return Memory(*sim_); }
  unsigned long requests() { return sim_->count("requests"); }
  // What the test's controllers have been told by the driver, with options().
  const std::vector<std::string>& lines() const { return *lines_; }
  // No line of the guarded build that refuses what the host asked for.
  void expect_no_refusal_of_the_guard() const;
  void TearDown() override;

  plc_test::TempDir folder_;
  std::unique_ptr<plc_test::RunningSim> sim_;
  std::shared_ptr<std::vector<std::string>> lines_ = std::make_shared<std::vector<std::string>>();
  bool may_violate_ = false;
};

// The sentence of what a call throws; "" when it throws nothing, the type's name before it when it is another.
template <typename Wanted, typename Call>
std::string thrown(const Call& call) {
  try {
    call();
  } catch (const Wanted& error) {
    return error.what();
  } catch (const std::exception& error) {
    return std::string("another exception: ") + error.what();
  }
  return {};
}

}  // namespace plc_client_test
