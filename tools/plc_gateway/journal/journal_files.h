// What stands in the places of a journal's files.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace plc_gateway {

// Why a journal in this folder cannot use the files that are there, with what to do; empty when it can, or there are
// none. Opens and makes nothing.
std::string problem_with_journal_files(const std::string& folder);

// The sentence of a folder in which no gateway has run, or none came so far.
std::string no_journal_yet(const std::string& database);

// Why the database cannot be read without a change, or that there is none; empty when it can.
std::string problem_with_a_look(const std::string& database);

// Tells whether the database and its log, once they are open, are still what stands in their places: what is written to
// files that were removed or replaced is lost when they are closed.
class JournalPlaces {
 public:
  JournalPlaces() = default;
  // Remembers what stands there now.
  explicit JournalPlaces(const std::string& database);
  bool are_left() const;

 private:
  struct Place {
    std::string path;
    dev_t device;
    ino_t file;
  };
  std::vector<Place> places_;
};

}  // namespace plc_gateway
