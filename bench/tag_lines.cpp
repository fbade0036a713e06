// The tag files of tag_lines.h.
#include "bench/tag_lines.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace bench {
namespace {

// What stands before and behind the record's number in the name, and behind the number in the id column.
struct Kind {
  const char* before;
  const char* behind;
  const char* rest;
};

constexpr Kind kKinds[] = {
    {"Conveyor_Speed_", ",INT,,,,,,", ",1,0,0,,DM\n"},
    {"Recipe_", ".Temperature,REAL,,,,,,", ",1,0,0,,EM\n"},
    {"Station[3].Valve_", ".Open,BOOL,,,,,,", ",1,0,0,,MR\n"},
    {"Counter_", ",UDINT,[0..99],,,,,", ",1,0,0,,DM\n"},
    {"Batch_Number_", ",STRING,,32,,,,", ",1,0,0,,EM\n"},
    {"Grid_", ",INT,[0..9_1..4],,,,,", ",1,0,0,,DM\n"},
    {"Step_", ",UINT,,,,,,", ",0,0,2,Main_Program,\n"},
    {"Position_", ",LREAL,[0..3_0..3_0..1],,,,,", ",0,1,3,Axis_Control,ZF\n"},
};
constexpr uint32_t kKindCount = sizeof kKinds / sizeof kKinds[0];

int print_line(std::FILE* file, uint32_t id) {
  const Kind& kind = kKinds[id % kKindCount];
  return std::fprintf(file, "%s%05u%s%u%s", kind.before, static_cast<unsigned>(id), kind.behind,
                      static_cast<unsigned>(id), kind.rest);
}

}  // namespace

TagFile::TagFile(uint32_t lines) {
  char path[] = "/tmp/plc_bench_tags.XXXXXX";
  std::FILE* const file = fdopen(mkstemp(path), "w");
  if (file == nullptr) {
    std::perror(path);
    std::exit(1);
  }
  path_ = path;
  for (uint32_t id = 0; id < lines; ++id) bytes_ += static_cast<size_t>(print_line(file, id));
  if (std::fclose(file) != 0) {
    std::perror(path);
    std::exit(1);
  }
}

TagFile::~TagFile() { unlink(path_.c_str()); }

}  // namespace bench
