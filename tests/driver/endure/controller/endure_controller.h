// The controller of the endurance program: carries out a request to the letter, by its handles alone, as a controller
// does. That a handle belongs to another variable than the host means is not its business; the rules see it.
#pragma once

#include "tests/driver/endure/controller/endure_variables.h"
#include "tests/driver/endure/referee/endure_rules.h"

namespace plc_endure {

enum class Kind { kDirectoryStart, kDirectory, kResolve, kRead, kWrite, kUnknown };

Kind kind_of(const Bytes& request);

class Controller {
 public:
  Controller(const VariableBook& book, Memory* memory, Rules* rules) : book_(book), memory_(memory), rules_(rules) {}

  // The reply, whole. A write that is refused by the fault engine is not carried out.
  void serve(const Bytes& request, const Meaning& meaning, bool carry_out, Bytes* reply);

  // Two programs have each other's number from now on.
  void renumber_programs() { is_renumbered_ = !is_renumbered_; }

 private:
  uint16_t serve_resolve(const Bytes& request, Bytes* reply) const;
  uint16_t serve_read(const Bytes& request, Bytes* reply) const;
  uint16_t serve_words(const Bytes& request, const Meaning& meaning);
  uint16_t serve_mask(const Bytes& request, const Meaning& meaning);
  uint16_t serve_bit(const Bytes& request, const Meaning& meaning);
  uint16_t serve_write(const Bytes& request, const Meaning& meaning);
  void append_words(const plc_sim::Handle& handle, uint32_t units, Bytes* reply, bool* is_there) const;
  void give(const Meaning& meaning, uint32_t cell, uint16_t mask, uint16_t value);

  uint8_t number_of(uint8_t number) const;

  const VariableBook& book_;
  bool is_renumbered_ = false;
  Memory* memory_;
  Rules* rules_;
};

}  // namespace plc_endure
