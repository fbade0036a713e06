// The driver as a program calls it that knows all numbers itself: words read one by one and in batches, with a plan
// made by hand.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "bench/operations.h"

namespace bench {

constexpr uint32_t kWords = 100;
constexpr const char* kWordsFile = "PLC7F000001_0.csv";

// A folder with a tag file of words that are not neighbours, as the working directory.
class WordsFolder {
 public:
  WordsFolder();
  WordsFolder(const WordsFolder&) = delete;
  WordsFolder& operator=(const WordsFolder&) = delete;
  ~WordsFolder();

 private:
  std::string path_;
};

// In the folder. Each read ends the program when it fails.
class DirectReads {
 public:
  DirectReads(const Driver& driver, uint16_t port);
  DirectReads(const DirectReads&) = delete;
  DirectReads& operator=(const DirectReads&) = delete;
  ~DirectReads();

  void read_word();
  void read_words();

 private:
  Driver driver_;
  CommSettings settings_{};
  ConnContext conn_{};
  std::vector<uint8_t> values_;
  std::vector<BatchReadRequest> elements_;
};

}  // namespace bench

// The same for programs that load this as a library, one at a time: count reads of one word, or of all.
extern "C" {

void direct_open(const char* library, uint16_t port);
void direct_read_word(uint32_t count);
void direct_read_words(uint32_t count);
void direct_close();
}
