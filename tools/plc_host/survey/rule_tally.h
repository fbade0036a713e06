// Counts how often replies keep and break one rule, by kind of request and by what was asked for: what one variable
// breaks each time says nothing of the controller, nor does what is seen now and then. A rate counts once it is sure:
// a tenth of a few replies is luck.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "wire/request.h"

namespace plc_host::survey {

// What a request asks for: a name or a place of the controller's memory for each part, and no part of a directory.
struct Subject {
  plc_sim::RequestKind kind = plc_sim::RequestKind::kUnknown;
  std::set<std::string> parts;
};

Subject subject_of(const plc_sim::Request& request);

// More than a tenth breaks in the long run, of which so many are seen: by an interval of 95 %.
bool is_surely_often(uint64_t broken, uint64_t all);

class RuleTally {
 public:
  enum class Word {
    kKept,
    kRarely,       // broken by a few replies among many
    kByVariables,  // broken by few of several variables, each time
    kNotKnown,     // broken, and too little was asked for to tell by whom
    kBroken,
  };

  void note(const Subject& subject, bool is_kept);
  // What was noted as kept is broken by what came later.
  void turn(const Subject& subject);
  Word judge() const;
  // Variables that break it each time, of the kind of request where most do.
  uint64_t culprits() const;

 private:
  struct Count {
    uint64_t kept = 0;
    uint64_t broken = 0;
    uint64_t broken_alone = 0;
    bool is_asked_alone = false;
  };
  struct OfKind {
    uint64_t kept = 0;
    uint64_t broken = 0;
    std::map<std::string, Count> parts;
    std::map<std::set<std::string>, uint64_t> broken_together;  // what several parts, or none, were asked for with
  };

  static bool is_culprit(const Count& count);
  static uint64_t culprits_of(const OfKind& kind);
  static Word word_of_parts(const OfKind& kind);
  static uint64_t unexplained_of(const OfKind& kind);
  static Word word_of_others(const OfKind& kind, bool others_break);
  bool is_broken_everywhere() const;
  bool is_often_broken() const;
  bool is_mostly_unexplained() const;
  bool others_break(plc_sim::RequestKind but) const;

  std::map<plc_sim::RequestKind, OfKind> kinds_;
};

}  // namespace plc_host::survey
