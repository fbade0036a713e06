// Fills the records of planned batches, makes the calls, and puts the values together again.
#include "batch_transfer.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "batch_plan.h"

namespace plc_host {
namespace {

constexpr size_t kTextBytesPerSlot = 2;
constexpr char kNotRead[] = "not read";

std::vector<BatchReadRequest> make_requests(const Batch& batch, uint16_t area) {
  std::vector<BatchReadRequest> requests;
  for (const BatchSlot& slot : batch) {
    BatchReadRequest request{};
    request.area = area;
    request.reg_type = request_reg_type(slot.register_id);
    request.address = request_address(slot.register_id, slot.element);
    request.count = slot.count;
    requests.push_back(request);
  }
  return requests;
}

// Variables on their way from slots to values.
struct Assembly {
  std::vector<TagResult> results;
  std::vector<bool> text_ended;  // its zero byte has been seen
};

void take_text(uint32_t reference, size_t number, Assembly& assembly) {
  TagResult& result = assembly.results[number];
  if (reference == 0) {
    result.error = "the driver made no reference to the text";
    return;
  }
  if (assembly.text_ended[number]) return;
  // The field has 32 bits on every build: the driver keeps the text where they reach it.
  const auto* text = reinterpret_cast<const char*>(static_cast<uintptr_t>(reference));
  const auto declared = static_cast<size_t>(std::max(result.reference.tag->entry.string_length, 1));
  const size_t room = std::min(kTextBytesPerSlot, declared - std::min(declared, result.value.text.size()));
  const size_t length = strnlen(text, room);
  result.value.text.append(text, length);
  assembly.text_ended[number] = length < kTextBytesPerSlot;
}

void take_value(const BatchSlot& slot, uint32_t value, Assembly& assembly) {
  std::vector<uint64_t>& elements = assembly.results[slot.reference].value.elements;
  switch (slot.part) {
    case SlotPart::kElement:
    case SlotPart::kLowHalf:
      elements.push_back(value);
      break;
    case SlotPart::kHighHalf:
      elements.back() |= uint64_t{value} << 32;
      break;
    case SlotPart::kText:
      take_text(value, slot.reference, assembly);
      break;
  }
}

void mark_failed(const Batch& batch, const std::string& error, const CallResult& call, Assembly& assembly) {
  for (const BatchSlot& slot : batch) {
    TagResult& result = assembly.results[slot.reference];
    result.code = call.code;
    result.connection_lost = call.connection_lost;
    result.error = error;
  }
}

void read_one_batch(DriverSession& session, const Batch& batch, Assembly& assembly) {
  std::vector<BatchReadRequest> requests = make_requests(batch, session.target().area);
  const CallResult call = session.read_batch(requests);
  if (!call.ok()) return mark_failed(batch, code_text(call.code), call, assembly);
  for (size_t i = 0; i < batch.size(); ++i) take_value(batch[i], requests[i].value, assembly);
}

// The variables that go into batches; the others get their reason.
std::vector<size_t> choose_batched(const std::vector<TagReference>& references, Assembly& assembly) {
  std::vector<size_t> chosen;
  for (size_t i = 0; i < references.size(); ++i) {
    if (why_not_batched(references[i])) continue;
    try {
      if (references[i].tag->entry.shape != PLC_STRING) plan_elements(references[i], Direction::kRead);
      chosen.push_back(i);
    } catch (const PlanError& error) {
      assembly.results[i].error = error.what();
    }
  }
  return chosen;
}

}  // namespace

std::vector<TagResult> read_tags_batched(DriverSession& session, const std::vector<TagReference>& references,
                                         const std::function<bool()>& stop, BatchFigures& figures) {
  Assembly assembly{std::vector<TagResult>(references.size()), std::vector<bool>(references.size(), false)};
  for (size_t i = 0; i < references.size(); ++i) {
    assembly.results[i].name = references[i].text;
    assembly.results[i].reference = references[i];
  }
  for (const Batch& batch : plan_batches(references, choose_batched(references, assembly))) {
    if (stop()) {
      mark_failed(batch, kNotRead, {}, assembly);
      continue;
    }
    ++figures.batches;
    figures.slots += batch.size();
    read_one_batch(session, batch, assembly);
  }
  for (size_t i = 0; i < references.size(); ++i) {
    if (!why_not_batched(references[i])) continue;
    if (stop()) {
      assembly.results[i].error = kNotRead;
      continue;
    }
    ++figures.single_reads;
    assembly.results[i] = read_tag(session, references[i]);
  }
  return std::move(assembly.results);
}

}  // namespace plc_host
