// A file that changes while the driver loads it is noticed, whenever it changes.
#include "client/tags/same_file.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "client/client_error.h"
#include "tests/support/temp_dir.h"

namespace {

using plc_client::core::ClientError;
using plc_client::core::DriverLibrary;
using plc_client::core::load_same_file;
using plc_client::core::load_whole_file;

constexpr char kOwnBytes[] = "First,INT\n";

// What the stand-in for the driver's reading does to the file on its way; none by default.
void (*meddle_with_file)(const std::string& path) = nullptr;

// One record, whatever the file has.
uint32_t* read_one_record(TagEntry** entries, IndexedTagEntry** groups, const char* path, uint32_t* ids) {
  (void)groups;
  (void)ids;
  static uint32_t counts[2] = {1, 0};
  if (meddle_with_file != nullptr) meddle_with_file(path);
  *entries = static_cast<TagEntry*>(std::calloc(1, sizeof(TagEntry)));
  std::strcpy((*entries)->name, "First");
  (*entries)->is_global = 1;
  return counts;
}

class SameFileTest : public testing::Test {
 protected:
  SameFileTest() {
    library_.build_tagtable = read_one_record;
    meddle_with_file = nullptr;
  }
  std::string refusal() {
    try {
      load_whole_file(library_, path_);
    } catch (const ClientError& error) {
      EXPECT_EQ(error.kind(), ClientError::Kind::kTagFile);
      return error.what();
    }
    return {};
  }
  plc_test::TempDir folder_;
  const std::string path_ = folder_.write("tags.csv", kOwnBytes);
  DriverLibrary library_;
};

TEST_F(SameFileTest, FileThatStays_IsLoadedWithItsBytes) {
  const plc_client::core::LoadedTags loaded = load_whole_file(library_, path_);
  EXPECT_EQ(loaded.bytes, kOwnBytes);
  EXPECT_EQ(loaded.list.tags.at(0).name, "First");
  EXPECT_EQ(load_same_file(path_, kOwnBytes, [] { return uint32_t{PLC_OK}; }), PLC_OK);
}

TEST_F(SameFileTest, FileChangedWhileItsListIsMade_IsRefused) {
  meddle_with_file = [](const std::string& path) { std::ofstream(path, std::ios::app) << "Second,INT\n"; };
  EXPECT_EQ(refusal(), "the tag file " + path_ + " changed while it was loaded. Try: again, once it is whole");
}

TEST_F(SameFileTest, FileRemovedWhileItsListIsMade_IsRefused) {
  meddle_with_file = [](const std::string& path) { std::filesystem::remove(path); };
  EXPECT_EQ(refusal(), "the tag file " + path_ + " changed while it was loaded. Try: again, once it is whole");
}

TEST_F(SameFileTest, FileThatCameWhileItsListIsMade_IsRefused) {
  std::filesystem::remove(path_);
  meddle_with_file = [](const std::string& path) { std::ofstream(path) << kOwnBytes; };
  EXPECT_EQ(refusal(), "cannot read " + path_ + ": No such file or directory");
}

TEST_F(SameFileTest, OtherBytesBeforeTheLoad_AreNotLoaded) {
  bool is_loaded = false;
  const auto load = [&is_loaded] {
    is_loaded = true;
    return uint32_t{PLC_OK};
  };
  folder_.write("tags.csv", "Second,INT\n");
  EXPECT_EQ(load_same_file(path_, kOwnBytes, load), std::nullopt);
  EXPECT_FALSE(is_loaded);
}

TEST_F(SameFileTest, OtherBytesBehindTheLoad_AreNoSuccess) {
  const auto change = [this] {
    folder_.write("tags.csv", "Second,INT\n");
    return uint32_t{PLC_OK};
  };
  EXPECT_EQ(load_same_file(path_, kOwnBytes, change), std::nullopt);
  folder_.write("tags.csv", kOwnBytes);
  const auto remove = [this] {
    std::filesystem::remove(path_);
    return uint32_t{PLC_OK};
  };
  EXPECT_EQ(load_same_file(path_, kOwnBytes, remove), std::nullopt);
}

TEST_F(SameFileTest, LoadThatFails_IsToldByItsCode) {
  std::filesystem::remove(path_);
  EXPECT_EQ(load_same_file(path_, kOwnBytes, [] { return uint32_t{PLC_FAILED}; }), PLC_FAILED);
}

}  // namespace
