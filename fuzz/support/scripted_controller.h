// The controller behind the scripted link: what a fuzz input makes of the healthy answer to each request.
#pragma once

#include <cstddef>
#include <cstdint>

#include "fuzz_input.h"

namespace fuzz {

// A program of the controller's directory.
struct Program {
  const char* name;
  uint8_t number;
};

// The programs that a choice stands for, in their order; at most kMostPrograms.
constexpr size_t kMostPrograms = 60;
size_t choose_programs(uint8_t choice, Program* programs);

// Takes what happens from this input, which outlives the run; an input that is used up answers everything as a healthy
// controller does.
void controller_follows(Input* input);

// Lets come what follows this request.
void controller_answers(const uint8_t* request, size_t length);

// Lets bytes wait before the next request.
void controller_leaves(size_t count);

// The programs of the directory that was sent last.
uint8_t last_directory();

}  // namespace fuzz
