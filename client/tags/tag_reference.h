// What a user means by NAME, NAME[3], NAME[0..4,2] or SCOPE/NAME: a variable of the tag file and some of its elements.
#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "client/tags/element_offset.h"
#include "client/tags/tag_list.h"

namespace plc_client::core {

struct TagReference {
  const Tag* tag = nullptr;            // of the list that it was looked up in
  std::string text;                    // the name with its scope and the subscripts as they were written
  std::vector<SubscriptRange> chosen;  // one per declared range; empty for a variable that is no array
  std::vector<size_t> extents;         // lengths of the ranges that were not given as a single subscript
};

// A name that cannot be looked up, with the reason for the user.
class ReferenceError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// No variable of the list has the name.
class NoSuchName : public ReferenceError {
 public:
  using ReferenceError::ReferenceError;
};

// Subscripts that the variable does not take: it is no array, or one of other dimensions.
class ShapeError : public ReferenceError {
 public:
  using ReferenceError::ReferenceError;
};

// A subscript outside its declared range.
class SubscriptError : public ReferenceError {
 public:
  using ReferenceError::ReferenceError;
};

// A variable that no request can ask for.
class UnreachableError : public ReferenceError {
 public:
  UnreachableError(const Tag& tag, const std::string& reason) : ReferenceError(reason), tag_(&tag) {}
  const Tag& tag() const { return *tag_; }

 private:
  const Tag* tag_;
};

// Looks up a name. An array without subscripts means all of its elements. Throws ReferenceError for a name that the
// list does not have or has more than once, for subscripts that do not fit the declaration, and for a variable that no
// request can ask for.
TagReference find_reference(const TagList& list, std::string_view text);

// The reference to a whole variable. Throws ReferenceError when no request can ask for it.
TagReference whole_tag(const Tag& tag);

// The last element of an array: who has it has those before it. Else the variable.
TagReference last_element(const Tag& tag);

// The chosen elements, the last subscript fastest; one without subscripts when the variable is no array.
std::vector<Subscripts> chosen_elements(const TagReference& reference);

// Cuts NAME=VALUE at the first '=' outside brackets. Throws ReferenceError when there is none.
void split_assignment(std::string_view text, std::string_view& name, std::string_view& value);

}  // namespace plc_client::core
