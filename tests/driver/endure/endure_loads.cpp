// Loads of random tag files.
#include "tests/driver/endure/endure_loads.h"

#include <cstdlib>

#include "plc_driver/tags/tag_file.h"

namespace plc_endure {

std::string Loads::random_file() {
  static constexpr const char* kTypes[] = {"INT", "DINT", "LREAL", "BOOL", "STRING", "DATE", "Nonsense", ""};
  static constexpr const char* kRanges[] = {"",       "[0..9]", "[1..4_2..7]", "[0..1_0..2_0..3]",
                                            "[9..0]", "[..]",   "[1..",        "[2147483647..-2147483648]"};
  std::string text;
  uint32_t id = random_.once_in(4) ? 0x40000 + random_.below(5) * 0x1000 : 0;
  for (uint32_t lines = random_.below(120); lines > 0; --lines) {
    id = random_.once_in(20) ? random_.below(0x50000) : id + 1;
    text += "V" + std::string(random_.once_in(30) ? random_.below(300) : random_.below(20), 'n') + "," +
            kTypes[random_.below(8)] + "," + kRanges[random_.below(8)] + ",20,a,b,c," + std::to_string(id) + ",1,0," +
            std::to_string(random_.below(5)) + (random_.once_in(3) ? ",MAIN,DM\n" : ",\n");
  }
  for (uint32_t changes = random_.once_in(4) ? random_.below(20) : 0; changes > 0 && !text.empty(); --changes) {
    text[random_.below(static_cast<uint32_t>(text.size()))] = static_cast<char>(random_.next());
  }
  return text;
}

bool Loads::run_one() {
  static constexpr const char* kFile = "random.csv";
  static uint32_t group_ids[plc::kIdBlocks];
  const std::string text = random_file();
  std::FILE* file = std::fopen(kFile, "wb");
  if (file == nullptr || std::fwrite(text.data(), 1, text.size(), file) != text.size() || std::fclose(file) != 0) {
    std::perror(kFile);
    std::exit(2);
  }
  TagEntry* entries = nullptr;
  IndexedTagEntry* groups = nullptr;
  const bool is_accepted = library_.build_table(&entries, &groups, kFile, group_ids) != nullptr;
  for (IndexedTagEntry* group = groups; group != nullptr && group->entries != nullptr; ++group) {
    std::free(group->entries);
  }
  std::free(groups);
  std::free(entries);
  return is_accepted;
}

}  // namespace plc_endure
