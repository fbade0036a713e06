// The report of a program of tests says which program it was, by the time and the size of its file: whoever reads a
// figure there knows whether it is that of the program that lies there now.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <string>

namespace plc_test {
namespace {

// The path is asked for first: under an emulator the link's own target is the emulator.
std::string stamp_of_program() {
  char path[PATH_MAX];
  const ssize_t length = readlink("/proc/self/exe", path, sizeof path - 1);
  if (length <= 0) return "";
  path[length] = '\0';
  struct stat file;
  if (stat(path, &file) != 0) return "";
  return std::to_string(file.st_mtim.tv_sec) + "." + std::to_string(file.st_mtim.tv_nsec) + " " +
         std::to_string(file.st_size);
}

struct ProgramStamp : testing::Environment {
  void SetUp() override { testing::Test::RecordProperty("program", stamp_of_program()); }
};
const testing::Environment* const g_stamp = testing::AddGlobalTestEnvironment(new ProgramStamp);

}  // namespace
}  // namespace plc_test
