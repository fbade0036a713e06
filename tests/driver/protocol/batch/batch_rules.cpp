// The rules of batch reads. Nothing of the driver is used here.
#include "tests/driver/protocol/batch/batch_rules.h"

#include <algorithm>
#include <cstring>

namespace plc_test {
namespace {

constexpr size_t kRequestBytes = 4096;

std::string decimal(uint32_t number) { return std::to_string(static_cast<int32_t>(number)); }

uint32_t extent(int32_t low, int32_t high) { return static_cast<uint32_t>(high) + 1 - static_cast<uint32_t>(low); }

uint32_t plus(int32_t low, uint32_t more) { return static_cast<uint32_t>(low) + more; }

bool is_bit(const TagEntry& entry) { return entry.bit_width == 1; }

void append16(Bytes* frame, size_t number) {
  frame->push_back(static_cast<uint8_t>(number >> 8));
  frame->push_back(static_cast<uint8_t>(number));
}

void append_name(Bytes* frame, const std::string& name) {
  append16(frame, name.size());
  for (const char c : name) append16(frame, static_cast<uint8_t>(c));
}

uint8_t size_code(uint8_t width, uint32_t run) {
  switch (width) {
    case 0:
      return static_cast<uint8_t>(run);
    case 1:
    case 16:
      return 1;
    case 32:
      return 2;
    case 64:
      return 4;
    default:
      return width;
  }
}

}  // namespace

BatchRules::BatchRules(std::vector<TagEntry> plain, std::vector<TagEntry> group, std::vector<Program> directory,
                       std::vector<BatchElement> elements)
    : plain_(std::move(plain)),
      group_(std::move(group)),
      directory_(std::move(directory)),
      elements_(std::move(elements)),
      bit_positions_(elements_.size()) {}

TagEntry* BatchRules::record(size_t slot) {
  const uint32_t id = slot < elements_.size() ? elements_[slot].id : 0;
  if (id < kFirstIndexed) return id < plain_.size() ? &plain_[id] : nullptr;
  return id - kFirstIndexed < group_.size() ? &group_[id - kFirstIndexed] : nullptr;
}

// --- Classification ---

void BatchRules::classify() {
  init_count = interact_count = static_cast<uint32_t>(elements_.size());
  for (const BatchElement& element : elements_) runs.push_back(element.count);
  if (!look_ahead()) return;
  for (size_t slot = 0; slot < elements_.size();) {
    if (!classify_slot(&slot)) return;
  }
}

bool BatchRules::look_ahead() {
  for (size_t i = 0; i + 1 < elements_.size(); ++i) {
    if (elements_[i].id >= kFirstIndexed && record(i) == nullptr) {
      is_out_of_range = true;
      return false;
    }
    if (elements_[i].id == elements_[i + 1].id) {
      --init_count;
      return true;
    }
  }
  return true;
}

bool BatchRules::classify_slot(size_t* slot) {
  const TagEntry* entry = record(*slot);
  if (entry == nullptr) {
    is_out_of_range = is_out_of_range || elements_[*slot].id >= kFirstIndexed;
    return false;
  }
  if (entry->dim1_high == 0 && entry->string_length == 0) {
    items.push_back(entry->name);
    ++*slot;
    return true;
  }
  if (is_bit(*entry)) {
    std::string name;
    if (!name_bit_item(*entry, elements_[*slot].element, &name)) {
      is_out_of_range = true;
      return false;
    }
    items.push_back(name);
    ++*slot;
    return true;
  }
  const size_t head = *slot;
  for (size_t next = head + 1; next < elements_.size() && runs[head] < 50; ++next) {
    const bool continues =
        elements_[next].id == elements_[head].id && elements_[next].element == elements_[next - 1].element + 1;
    if (!continues) break;
    --interact_count;
    ++runs[head];
  }
  if (std::find(items.begin(), items.end(), entry->name) == items.end()) items.push_back(entry->name);
  *slot += runs[head];
  return runs[head] > 0;
}

bool BatchRules::name_bit_item(const TagEntry& entry, uint32_t e, std::string* name) const {
  const uint32_t e1 = extent(entry.dim1_low, entry.dim1_high);
  const uint32_t e2 = extent(entry.dim2_low, entry.dim2_high);
  const auto inside = [](uint32_t index, int32_t high) { return index <= static_cast<uint32_t>(high); };
  const std::string start = std::string(entry.name) + "[";
  if (entry.shape == 4) {
    const uint32_t z = plus(entry.dim1_low, e % e1);
    const uint32_t y = plus(entry.dim2_low, e / e1);
    *name = start + decimal(y) + "," + decimal(z) + "]";
    return inside(z, entry.dim1_high) && inside(y, entry.dim2_high);
  }
  if (entry.shape == 5) {
    const uint32_t z = plus(entry.dim1_low, e % e1);
    const uint32_t y = plus(entry.dim2_low, e / e1 % e2);
    const uint32_t x = plus(entry.dim3_low, e / e1 / e2);
    *name = start + decimal(x) + "," + decimal(y) + "," + decimal(z) + "]";
    return inside(z, entry.dim1_high) && inside(y, entry.dim2_high) && inside(x, entry.dim3_high);
  }
  *name = start + decimal(e) + "]";
  return entry.shape != 1 || inside(e, entry.dim1_high);
}

// --- Frames ---

bool BatchRules::has_run_of_zero() {
  size_t total = 0;
  for (const BatchElement& element : elements_) total += element.count;
  const size_t frames = total / 35;
  const size_t span = elements_.size() / (frames + 1);
  size_t slot = 0;
  for (size_t frame = 0; frame <= frames; ++frame) {
    const size_t end = std::min(slot + span, elements_.size());
    while (slot < end) {
      if (runs[slot] == 0) return true;
      const TagEntry* entry = record(slot);
      if (entry == nullptr) return false;  // the walk ends here
      slot += is_bit(*entry) ? 1 : runs[slot];
    }
  }
  return false;
}

void BatchRules::run(const Controller& controller, uint32_t untouched) {
  values.assign(elements_.size(), untouched);
  texts.assign(elements_.size(), "");
  size_t total = 0;
  for (const BatchElement& element : elements_) total += element.count;
  classify();
  const size_t frames = total / 35;
  const size_t span = elements_.size() / (frames + 1);
  result = 3;
  if (span == 0 || has_run_of_zero()) return;
  size_t slot = 0;
  for (size_t frame = 0; frame <= frames; ++frame) {
    const size_t end = std::min(slot + span, elements_.size());
    if (slot < end && !run_frame(&slot, end, controller)) return;
  }
  result = 0;
}

Bytes BatchRules::head(size_t length) {
  Bytes bytes = {0, 0};
  append16(&bytes, length);
  append16(&bytes, 0xFFFF);
  append16(&bytes, 0xFFFF - length);
  append16(&bytes, sequence_++ % 65536);
  return bytes;
}

bool BatchRules::run_frame(size_t* slot, size_t end, const Controller& controller) {
  Bytes body;
  std::vector<NamedSlot> walked;
  size_t all_names = 0;
  uint8_t blocks = 0;
  bool last_is_local = false;
  while (*slot < end) {
    TagEntry* entry = record(*slot);
    if (entry == nullptr) return false;
    const bool is_local = entry->is_global != 1;
    for (const Program& program : directory_) {
      if (!is_local || strcmp(program.name, entry->scope_name) != 0) continue;
      entry->local_index = static_cast<uint8_t>(program.number);
      break;
    }
    const TagEntry* previous = *slot == 0 ? nullptr : record(*slot - 1);
    if (previous == nullptr || previous->is_global != entry->is_global || body.empty()) {
      ++blocks;
      last_is_local = is_local;
      body = body + (is_local ? Bytes{1, 1, 0, entry->local_index, 0, 0, 0, 0} : Bytes{0, 0});
      append16(&body, run_of(*slot));
    }
    std::vector<std::string> names;
    if (!form_names(*slot, *entry, &names)) return false;
    for (const std::string& name : names) append_name(&body, name);
    walked.push_back({entry, *slot, names.size()});
    all_names += names.size();
    *slot += is_bit(*entry) ? 1 : run_of(*slot);
  }
  const size_t count_at = last_is_local ? 22 - 14 : 16 - 14;
  body.at(count_at) = static_cast<uint8_t>(all_names >> 8);
  body.at(count_at + 1) = static_cast<uint8_t>(all_names);
  if (14 + body.size() > kRequestBytes) return false;
  requests.push_back(head(4 + body.size()) + Bytes{0x0C, 0x28, 0, blocks} + body);
  receive(controller(requests.back()));
  result = 2;
  if (reply_length_ <= 24) return false;
  requests.push_back(value_request(walked));
  receive(controller(requests.back()));
  if (reply_length_ <= 13 || !store(walked)) return false;
  result = 3;
  return true;
}

bool BatchRules::form_names(size_t slot, const TagEntry& entry, std::vector<std::string>* names) {
  const uint32_t first = elements_[slot].element;
  if (is_bit(entry) && elements_.size() > 1) {
    names->push_back(element_name(entry, first, slot));
    names->push_back(element_name(entry, first + run_of(slot) - 1, slot));
    return true;
  }
  for (uint32_t j = 0; j < run_of(slot); ++j) {
    const TagEntry* own = is_bit(entry) ? &entry : record(slot + j);
    if (own == nullptr) return false;
    names->push_back(element_name(*own, first + j, slot + j));
  }
  return true;
}

std::string BatchRules::element_name(const TagEntry& entry, uint32_t k, size_t slot) const {
  const uint32_t e1 = extent(entry.dim1_low, entry.dim1_high);
  const uint32_t e2 = extent(entry.dim2_low, entry.dim2_high);
  std::string name = entry.name;
  switch (entry.shape) {
    case 1:
      return name + "[#" + decimal(k) + "]";
    case 3:
      return name + "[#" + decimal(slot < elements_.size() ? elements_[slot].element : 0) + "]";
    case 4:
      return name + "[#" + decimal(plus(entry.dim1_low, k / e1)) + ",#" + decimal(plus(entry.dim2_low, k % e1)) + "]";
    case 5:
      return name + "[#" + decimal(plus(entry.dim1_low, k / e1 / e2)) + ",#" +
             decimal(plus(entry.dim2_low, k / e1 % e2)) + ",#" + decimal(plus(entry.dim3_low, k % e1)) + "]";
    default:
      return name;
  }
}

Bytes BatchRules::value_request(const std::vector<NamedSlot>& walked) {
  Bytes references;
  size_t count = 0;
  size_t p = 0;
  for (const NamedSlot& one : walked) {
    for (size_t n = 0; n < one.names; ++n) {
      uint32_t last = reply_at(p + 25);
      if (is_bit(*one.entry)) {
        const bool in_word = one.entry->name_kind != 1;
        bit_positions_[one.slot].push_back(in_word ? reply_at(p + 30) & 0x0F : last & 0x0F);
        last = in_word ? last : last & 0xF0;
      }
      const uint8_t code = size_code(one.entry->bit_width, run_of(one.slot));
      references = references + Bytes{0, static_cast<uint8_t>(reply_at(p + 21)), 0, code};
      for (size_t i = 22; i < 25; ++i) references.push_back(static_cast<uint8_t>(reply_at(p + i)));
      references.push_back(static_cast<uint8_t>(last));
      p += 24 + 4 * reply_at(p + 40);
      ++count;
    }
  }
  Bytes request = head((count + 1) * 8) + Bytes{0x1E, 0x09, 0};
  append16(&request, count);
  return request + Bytes{0, 0, 0} + references;
}

void BatchRules::receive(const Bytes& reply) {
  std::copy(reply.begin(), reply.end(), reply_.begin());
  reply_length_ = reply.size();
}

// --- Values ---

bool BatchRules::store(const std::vector<NamedSlot>& walked) {
  size_t offset = 0;
  for (const NamedSlot& one : walked) {
    offset += store_slot(one, offset);
    if (reply_length_ <= offset + 13) return false;
  }
  return true;
}

void BatchRules::put(size_t element, uint32_t value) {
  if (element < values.size()) values[element] = value;
}

size_t BatchRules::store_slot(const NamedSlot& one, size_t offset) {
  const uint32_t run = run_of(one.slot);
  const size_t v = 14 + offset;
  const auto two_words = [this](size_t at) { return word_at(at) + word_at(at + 2) * 65536; };
  switch (one.entry->bit_width) {
    case 16:
      for (uint32_t j = 0; j < run; ++j) put(one.slot + j, word_at(v + 2 * j));
      return 2 * run;
    case 32:
      for (uint32_t j = 0; j < run; ++j) put(one.slot + j, two_words(v + 4 * j));
      return 4 * run;
    case 64:
      for (uint32_t j = 0; j < run; ++j) {
        put(one.slot + 2 * j, two_words(v + 8 * j));
        put(one.slot + 2 * j + 1, two_words(v + 8 * j + 4));
      }
      return 8 * run;
    case 0: {
      std::string text;
      for (size_t i = 0; i < 2 * run; ++i) text += static_cast<char>(reply_at(v + i));
      for (size_t j = 0; j < run && one.slot + j < texts.size(); ++j) texts[one.slot + j] = text;
      return 2 * run;
    }
    case 1:
      store_bits(one, offset);
      return elements_.size() > 1 ? 4 : 2 * run;
    default:
      return 0;
  }
}

void BatchRules::store_bits(const NamedSlot& one, size_t offset) {
  const bool alone = elements_.size() == 1;
  for (uint32_t j = 0; j < run_of(one.slot); ++j) {
    const uint32_t b = alone ? bit_positions_[one.slot][j] : bit_positions_[one.slot][0] + j;
    const uint32_t word = word_at(14 + offset + (alone ? 2 * j : 0));
    const uint32_t bit = b < 16 ? word >> b & 1 : 0;
    put(one.slot + j, bit);
    if (j > 0 && j < 32) values[one.slot] += bit << j;
  }
}

}  // namespace plc_test
