// Names and references of plc-host: a tag file as the driver reads it, a name with subscripts and ranges looked up in
// it, the elements and offsets that it means, near names, and what is said of the lines.
#include <algorithm>
#include <string>
#include <vector>

#include "base/near_names.h"
#include "client/client_error.h"
#include "client/tags/element_offset.h"
#include "client/tags/tag_list.h"
#include "client/tags/tag_reference.h"
#include "client/tags/tag_source.h"
#include "client/values/value_type.h"
#include "fuzz_input.h"
#include "judge.h"
#include "memory_files.h"
#include "plc_driver/tags/tag_file.h"
#include "spelling.h"
#include "tag_words.h"

namespace {

using fuzz::demand;
using plc_client::core::Direction;
using plc_client::core::Tag;
using plc_client::core::TagList;
using plc_client::core::TagReference;

constexpr size_t kMostElements = 64;  // that are formed one by one
constexpr const char* kPath = "PLC1_0.csv";

size_t element_count(const TagReference& reference) {
  size_t count = 1;
  for (const auto& range : reference.chosen) count *= static_cast<size_t>(int64_t{range.high} - range.low + 1);
  return count;
}

void judge_reference(const TagList& list, const TagReference& reference) {
  const auto declared = plc_client::core::declared_ranges(reference.tag->entry);
  demand(reference.tag->register_id.has_value(), "a request can ask for what is found");
  demand(reference.tag >= list.tags.data() && reference.tag < list.tags.data() + list.tags.size(),
         "a reference is to a record of the list");
  demand(reference.chosen.size() == declared.size(), "a range is chosen for each that is declared");
  for (size_t i = 0; i < declared.size(); ++i) {
    demand(reference.chosen[i].low >= declared[i].low && reference.chosen[i].high <= declared[i].high,
           "what is chosen is declared");
  }
  const size_t count = element_count(reference);
  demand(count >= 1 && count <= 0x10000, "a reference has elements, and not too many");
  if (count <= kMostElements) {
    const auto elements = plc_client::core::chosen_elements(reference);
    demand(elements.size() == count, "each element is formed");
    demand(std::is_sorted(elements.begin(), elements.end()), "the last subscript runs fastest");
  }
}

// The text that shows a reference leads to it again, unless it is the name of several records.
void judge_text_of(const TagList& list, const TagReference& reference) {
  try {
    const TagReference again = plc_client::core::find_reference(list, reference.text);
    demand(again.text == reference.text, "the text of a reference is that of what it leads to");
    demand(again.chosen.size() == reference.chosen.size() || again.tag != reference.tag, "the same elements");
  } catch (const plc_client::core::ReferenceError&) {
  }
}

// An offset that the driver turns into subscripts is found for these subscripts.
void judge_offsets(const TagEntry& entry, uint32_t element) {
  const uint32_t limit = 0x10000 / plc_client::core::host_units_per_element(entry);
  for (const Direction direction : {Direction::kRead, Direction::kWrite}) {
    const auto subscripts = plc_client::core::subscripts_at(entry, direction, element % limit);
    if (!subscripts) continue;
    demand(subscripts->size() == plc_client::core::declared_ranges(entry).size(), "a subscript for each range");
    const auto found = plc_client::core::find_element_offset(entry, direction, *subscripts, element);
    demand(found && plc_client::core::subscripts_at(entry, direction, *found) == subscripts, "an offset leads back");
    demand(subscripts->empty() == plc_client::core::subscript_text(*subscripts).empty(), "subscripts are shown");
  }
}

void judge_near_names(const TagList& list, const std::string& wanted) {
  constexpr size_t kMost = 5;
  std::vector<std::string> names;
  for (const Tag& tag : list.tags) names.push_back(tag.name);
  const std::vector<std::string> near = plc_base::near_names(wanted, names);
  demand(near.size() <= kMost, "five near names at most");
  for (const std::string& name : near) {
    demand(name != wanted && std::count(near.begin(), near.end(), name) == 1, "near names are others, each once");
    demand(std::find(names.begin(), names.end(), name) != names.end(), "near names are names");
  }
  demand(plc_base::joined_with_or(near).size() >= (near.empty() ? 0 : near.front().size()), "near names are shown");
}

void judge_assignment(const std::string& text) {
  std::string_view name;
  std::string_view value;
  try {
    plc_client::core::split_assignment(text, name, value);
  } catch (const plc_client::core::ReferenceError&) {
    return;
  }
  demand(std::string(name) + "=" + std::string(value) == text, "an assignment is its name and its value");
}

void judge_source(const TagList& list, const std::string& text, const std::string& wanted) {
  const plc_client::core::TagSource source(kPath, text);
  for (size_t position = 0; position < std::min<size_t>(list.tags.size(), 1); ++position) {
    const auto line = source.line_of(list, position);
    demand(line && line->number >= 1, "each record has its line");
    source.remarks_on(line->number);
    source.shifts_before(line->number);
  }
  demand(source.errors(2).size() <= 2, "so many errors at most");
  demand(source.path() == kPath, "the file has its name");
  const auto* dropped = source.dropped_declaration(wanted);
  demand(dropped == nullptr || dropped->offset + dropped->length <= text.size(), "a dropped piece is in the text");
}

// Every record by its own names, and those that a number leads to.
void judge_tags(const TagList& list) {
  constexpr size_t kMost = 3;
  for (size_t i = 0; i < std::min(list.tags.size(), kMost); ++i) {
    const Tag& tag = list.tags[i];
    demand(tag.register_id.has_value() == tag.unreachable.empty(), "a record has a number or a reason");
    if (tag.register_id) {
      const Tag* found = plc_client::core::find_tag_by_id(list, *tag.register_id);
      demand(found != nullptr && found->register_id == tag.register_id, "a number leads to its record");
    }
    plc_client::core::device_name(tag.entry.device_kind);
    demand(plc_client::core::is_on_em(tag.entry) || !plc_client::core::is_em_bit_array(tag.entry),
           "bit arrays in EM are in EM");
    try {
      judge_reference(list, plc_client::core::whole_tag(tag));
    } catch (const plc_client::core::ReferenceError&) {
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  if (freopen("/dev/null", "w", stdout) == nullptr) abort();
  return 0;
}

// What is asked for, then a zero byte, then the file.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t length) {
  fuzz::Input input(bytes, length);
  const uint8_t choice = input.byte();
  const uint32_t element = input.word();
  const std::string rest = input.text();
  const size_t end = std::min(rest.find('\0'), rest.size());
  const std::string wanted = fuzz::spelled(std::string_view(rest).substr(0, end), fuzz::kTagWords);
  const std::string text =
      fuzz::spelled(std::string_view(rest).substr(std::min(end + 1, rest.size())), fuzz::kTagWords);
  judge_assignment(wanted);
  fuzz::set_tag_file(text);
  plc_client::core::DriverLibrary library;
  if (choice != 0) library.build_tagtable = build_tagtable;
  TagList list;
  try {
    list = plc_client::core::load_tag_list(library, kPath);
  } catch (const plc_client::core::ClientError&) {
    return 0;
  }
  judge_tags(list);
  judge_near_names(list, wanted);
  try {
    const TagReference reference = plc_client::core::find_reference(list, wanted);
    judge_reference(list, reference);
    judge_text_of(list, reference);
  } catch (const plc_client::core::ReferenceError& error) {
    demand(*error.what() != '\0', "a refusal has a reason");
  }
  for (size_t i = 0; i < std::min<size_t>(list.tags.size(), 2); ++i) judge_offsets(list.tags[i].entry, element);
  if ((choice & 15U) == 1) judge_source(list, text, wanted);
  return 0;
}
