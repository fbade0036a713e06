// Reads and writes variables by name: plans the calls, makes them, and says what went wrong in words.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "client/driver/driver_session.h"
#include "client/plan/transfer_plan.h"
#include "client/tags/tag_reference.h"
#include "client/values/reading.h"
#include "client/values/value_text.h"

namespace plc_client::core {

// One variable that was asked for, and what became of it.
struct TagResult {
  std::string name;        // as shown to the user
  TagReference reference;  // its tag is null when the name could not be looked up
  Reading reading;
  // Of one that was read by its number: what is odd about offset and count, and what about those of each element.
  std::string remark;
  std::vector<std::string> element_remarks;
  size_t first_element = 0;  // the number of its first element in the variable
  bool is_found() const { return reference.tag != nullptr; }
  bool ok() const { return reading.value() != nullptr; }
};

// A variable that has not been read yet.
TagResult unread(const TagReference& reference);

// Reads the chosen elements of a variable, stopping at the first call that fails.
TagResult read_tag(DriverSession& session, const TagReference& reference);

// Tells when asking on would only repeat a failure: once the controller was silent, or lost the connection twice in a
// row.
class Patience {
 public:
  void take(const Reading& reading);
  bool is_over() const { return is_over_; }
  // What the controller did, behind its address: "does not answer".
  const char* last_word() const { return last_word_; }

 private:
  bool was_lost_ = false;
  const char* last_word_ = "does not answer";
  bool is_over_ = false;
};

// Reads the variables that were found, one after the other, and calls done behind each of all. After a stop signal, and
// once patience is over, the others stay unread and say why.
void read_tags(DriverSession& session, std::vector<TagResult>& results, const std::function<bool()>& stop,
               const std::function<void(const TagResult& result)>& done);

// Why the others are left out once patience is over.
Failure end_of(const Patience& patience, const Target& target);

// A write of which everything that can be checked has been checked.
struct PreparedWrite {
  TagReference reference;
  TagValue value;
  std::vector<ElementRun> runs;     // of everything but strings
  std::vector<StringPiece> pieces;  // of a string
};

// Throws ReferenceError, ValueError or PlanError; sends nothing.
PreparedWrite prepare_write(const TagReference& reference, std::string_view value_text, const RequestRules& rules = {});

// Writes the elements, stopping at the first call that fails.
TagResult write_tag(DriverSession& session, const PreparedWrite& write);

// Exchanges of the first calls of a write.
size_t write_exchanges(const PreparedWrite& write, size_t calls);

// True when a value that was read back is the one that was written.
bool same_value(const TagEntry& entry, const TagValue& written, const TagValue& read);

// A write of a value that has been checked. Throws PlanError; sends nothing.
PreparedWrite prepare_write(const TagReference& reference, TagValue value, const RequestRules& rules = {});

// Appends the elements of a buffer filled by ev_plc_read.
void append_elements(const TagEntry& entry, const uint8_t* data, uint32_t count, std::vector<uint64_t>& elements);

// The elements of a buffer filled by ev_plc_read.
std::vector<uint64_t> decode_elements(const TagEntry& entry, const uint8_t* data, uint32_t count);

// Fills a buffer for ev_plc_write with count elements from first on.
void encode_elements(const TagEntry& entry, const TagValue& value, size_t first, uint32_t count, uint8_t* data);

// Bytes of a buffer that holds whatever a read of this many elements can store.
size_t read_buffer_bytes(uint32_t count);

// Why a variable of this kind is known to fail, for the end of an error message; "" when it is not.
std::string known_limit(const TagEntry& entry);

}  // namespace plc_client::core
