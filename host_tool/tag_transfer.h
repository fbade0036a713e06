// Reads and writes variables by name: plans the calls, makes them, and says what went wrong in words.
#ifndef HOST_TOOL_TAG_TRANSFER_H_
#define HOST_TOOL_TAG_TRANSFER_H_

#include <string>

#include "driver_session.h"
#include "tag_reference.h"
#include "transfer_plan.h"
#include "value_text.h"

namespace plc_host {

// What became of one variable: a value, or the reason why there is none.
struct TagResult {
  std::string name;        // as shown to the user
  TagReference reference;  // its tag is null when the name could not be looked up
  TagValue value;
  std::string error;             // empty when there is a value
  uint32_t code = 0;             // the driver's return code of the call that failed, 0 when none did
  bool connection_lost = false;  // it failed because there was no connection
  bool ok() const { return error.empty(); }
};

// Reads the chosen elements of a variable, stopping at the first call that fails.
TagResult read_tag(DriverSession& session, const TagReference& reference);

// A write of which everything that can be checked has been checked.
struct PreparedWrite {
  TagReference reference;
  TagValue value;
  std::vector<ElementRun> runs;     // of everything but strings
  std::vector<StringPiece> pieces;  // of a string
};

// Throws ReferenceError, ValueError or PlanError; sends nothing.
PreparedWrite prepare_write(const TagReference& reference, std::string_view value_text);

// Writes the elements, stopping at the first call that fails.
TagResult write_tag(DriverSession& session, const PreparedWrite& write);

// True when a value that was read back is the one that was written.
bool same_value(const TagEntry& entry, const TagValue& written, const TagValue& read);

// The elements of a buffer filled by ev_plc_read.
std::vector<uint64_t> decode_elements(const TagEntry& entry, const uint8_t* data, uint32_t count);

// Fills a buffer for ev_plc_write with count elements from first on.
void encode_elements(const TagEntry& entry, const TagValue& value, size_t first, uint32_t count, uint8_t* data);

// Bytes of a buffer that holds whatever a read of this many elements can store.
size_t read_buffer_bytes(uint32_t count);

// Why a variable of this kind is known to fail, for the end of an error message; "" when it is not.
std::string known_limit(const TagEntry& entry);

}  // namespace plc_host

#endif  // HOST_TOOL_TAG_TRANSFER_H_
